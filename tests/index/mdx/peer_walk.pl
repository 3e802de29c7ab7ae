# Prints every key of one tag of an MDX file as Perl's XBase::Index reads
# it, one "hex of the key<TAB>record" line each, in the tag's order.
use strict;
use warnings;
use XBase::Index;

my $index = XBase::mdx->new($ARGV[0], tag => $ARGV[1]) or die XBase::Index->errstr;
$index->prepare_select;
while (my ($key, $record) = $index->fetch) {
  print unpack('H*', $key), "\t$record\n";
}
