#!/usr/bin/env perl
# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors
#
# Looks for links between the pages of the site that lead nowhere: to files that are not there, and to places in a page
# that it does not have. Fails if there are any.
# usage: perl docs/site-links.pl <folder of the site>
use strict;
use warnings;

my $site = shift or die "usage: site-links.pl <folder>\n";
my (%links, %places);
for my $file (glob "$site/*.html") {
  open my $in, '<', $file or die "$file: $!\n";
  my $text = do { local $/; <$in> };
  close $in;
  (my $page = $file) =~ s{.*/}{};
  $places{$page}{$_} = 1 for $text =~ /\b(?:id|name)="([^"]+)"/g;
  $links{$page}{$_} = 1 for $text =~ /\b(?:href|src|data)="([^"]+)"/g;
}
my $n_links = 0;
my $n_dead = 0;
for my $page (sort keys %links) {
  for my $link (sort keys %{$links{$page}}) {
    next if $link =~ /^[a-z]+:/;
    ++$n_links;
    my ($file, $place) = split /#/, $link, 2;
    $file = $page if $file eq '';
    $place = '' unless defined $place;
    my $is_there = -e "$site/$file" && ($place eq '' || !$places{$file} || $places{$file}{$place});
    next if $is_there;
    print STDERR "$page: a link leads nowhere: $link\n";
    ++$n_dead;
  }
}
die "$n_dead links lead nowhere\n" if $n_dead > 0;
die "there are no pages in $site\n" if $n_links == 0;
