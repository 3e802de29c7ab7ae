# Prints a table as Perl's XBase reads it, in the same form as
# peer_dump.py. Used by the DBF tests as an independent reader.
use strict;
use warnings;
use XBase;

my $t = XBase->new($ARGV[0]) or die XBase->errstr;
my @names = $t->field_names;
for my $n (@names) {
  printf "F|%s|%s|%d|%d\n", uc $n, $t->field_type($n), $t->field_length($n),
    $t->field_decimal($n);
}
for my $i (0 .. $t->last_record) {
  my ($del, @v) = $t->get_record($i);
  my @out = ('R', $del ? '1' : '0');
  for my $k (0 .. $#names) {
    my $type = $t->field_type($names[$k]);
    my $v = $v[$k];
    if (!defined $v) { push @out, ($type eq 'L' ? '?' : ''); next; }
    if ($type eq 'N' || $type eq 'F') { $v = sprintf('%.*f', $t->field_decimal($names[$k]), $v); }
    elsif ($type eq 'L') { $v = $v ? 'T' : 'F'; }
    else { $v =~ s/\s+$//; }
    push @out, $v;
  }
  print join('|', @out), "\n";
}
$t->close;
