# Prints a table as Perl's XBase reads it: "F|name|type|length|decimals"
# per field, then "R|deleted|value|..." per record ("?" an unknown logical).
use strict;
use warnings;
use XBase;

my $t = XBase->new($ARGV[0]) or die XBase->errstr;
my @names = $t->field_names;
my @types = map { $t->field_type($_) } @names;
printf "F|%s|%s|%d|%d\n", uc $_, $t->field_type($_), $t->field_length($_), $t->field_decimal($_) for @names;
for my $i (0 .. $t->last_record) {
  my ($del, @v) = $t->get_record($i);
  print join('|', 'R', $del ? '1' : '0', map {
    my ($type, $v) = ($types[$_], $v[$_]);
    !defined $v ? ($type eq 'L' ? '?' : '') : $type eq 'N' ? sprintf('%.*f', $t->field_decimal($names[$_]), $v)
      : $type eq 'L' ? ($v ? 'T' : 'F') : ($v =~ s/\s+$//r)
  } 0 .. $#names), "\n";
}
