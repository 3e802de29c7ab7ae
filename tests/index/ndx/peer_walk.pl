# Prints every key of an NDX index as Perl's XBase::Index reads its pages,
# one "key<TAB>record" line each in key order (numeric keys as numbers).
# The pages are walked here rather than with fetch: in a branch page the
# reader also reports the slot after the last key, which holds only the
# rightmost child; and of a branch that holds no key (only that child) it
# reads no entry at all, so the child is read from the block here.
use strict;
use warnings;
use XBase::Index;

my $index = XBase::ndx->new($ARGV[0]) or die XBase::Index->errstr;
my $numeric = $index->{'key_type'};
my $pages = 0;
sub walk {
  my $page = $index->get_record($_[0]) or die "no page $_[0]\n";
  die "more pages than the file holds\n" if ++$pages > $index->{'total_pages'};
  if (defined $page->{'lefts'}[0]) {
    walk($_) for @{$page->{'lefts'}};
    return;
  }
  if (!@{$page->{'keys'}}) {
    my (undef, $only) = unpack 'VV', $index->read_record($_[0]);
    walk($only) if $only;
    return;
  }
  for my $i (0 .. $#{$page->{'keys'}}) {
    my $key = $page->{'keys'}[$i];
    printf "%s\t%d\n", $numeric ? sprintf('%.15g', $key) : $key, $page->{'values'}[$i];
  }
}
walk($index->{'start_page'});
