#!/usr/bin/perl
# Prints the same as script.c, using Perl's CGI.pm.
use strict;
use warnings;
use CGI;

sub show {
  my ($show_one, @items) = @_;
  return unless @items;
  $show_one->($_) for ($items[0], $items[@items / 2], $items[-1]);
}

my $query = CGI->new;
my (@entries, @files);
for my $name ($query->param) {
  my $file = $query->upload($name);
  if (defined $file) { push @files, $name } else { push @entries, $name }
}

printf "Content-Type: text/plain\n\n%d entries, %d files\n", scalar @entries, scalar @files;
show(
  sub {
    my $value = $query->param($_[0]);
    printf "%s=%s (%d bytes)\n", $_[0], substr($value, 0, 16), length $value;
  },
  @entries
);
show(
  sub {
    my $handle = $query->upload($_[0]);
    my $type = $query->uploadInfo($handle)->{'Content-Type'};
    my $bytes = do { local $/; <$handle> };
    seek $handle, 0, 0;
    printf "%s: %s, %s, %d bytes, %s\n", $_[0], "$handle", $type, length $bytes,
      unpack('H*', substr($bytes, -8));
  },
  @files
);
