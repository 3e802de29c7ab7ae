# Prints a table as Perl's XBase reads it: "F|name|type|length|decimals"
# per field, then "R|deleted|value|..." per record ("?" an unknown logical).
use strict;
use warnings;
use XBase;

my $t = XBase->new($ARGV[0]) or die XBase->errstr;
my @names = $t->field_names;
printf "F|%s|%s|%d|%d\n", uc $_, $t->field_type($_), $t->field_length($_), $t->field_decimal($_) for @names;
for my $i (0 .. $t->last_record) {
  my ($del, @v) = $t->get_record($i);
  my @out = ('R', $del ? '1' : '0');
  for my $k (0 .. $#names) {
    my ($type, $v) = ($t->field_type($names[$k]), $v[$k]);
    if (!defined $v) { $v = $type eq 'L' ? '?' : ''; }
    elsif ($type eq 'N') { $v = sprintf('%.*f', $t->field_decimal($names[$k]), $v); }
    elsif ($type eq 'L') { $v = $v ? 'T' : 'F'; }
    else { $v =~ s/\s+$//; }
    push @out, $v;
  }
  print join('|', @out), "\n";
}
