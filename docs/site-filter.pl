#!/usr/bin/env perl
# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors
#
# Makes a page of the repository one of the site, and writes it to the standard output. Of a header, friend classes are
# left out, which are no part of the interface, and what is said of lifetime, threads, errors and cost begins a line.
# Run from the root.
# usage: perl docs/site-filter.pl <page.md or header.hpp>
#
# - The licence lines are left out; title and headings get the names that links use: `memory`, `memory-what-counts`.
# - [text](memory.md), [text](memory.md#what-counts) lead to pages and headings of the site, links to programs under
#   examples/ to their listing. What is part of the repository and not of the site stays as plain text. A link to a
#   page that does not exist is left to Doxygen, which complains.
# - A comment before a block of code that names its source becomes a line with a link to the listing.
# - A page with several headings begins with a list of them.
use strict;
use warnings;

my $page = shift or die "usage: site-filter.pl <page.md or header.hpp>\n";
chomp(my $root = `pwd`);
$page =~ s{^\Q$root\E/}{};
my $folder = $page =~ m{^(.*)/[^/]*$} ? $1 : '';

# The name of the page that a file becomes.
sub label {
  my $file = shift;
  return 'index' if $file eq 'docs/overview.md' or $file eq 'README.md';
  return "floor-$1" if $file =~ m{^(\w+)/README\.md$};
  $file =~ s{^.*/}{};
  $file =~ s{\.md$}{};
  return 'example-programs' if $file eq 'examples';  # examples.html is Doxygen's list of listings
  return lc $file;
}

# The name of a heading, spelled as the viewers of repositories spell it.
sub slug {
  my $text = lc shift;
  $text =~ s/[^a-z0-9 _-]//g;
  $text =~ s/ /-/g;
  return $text;
}

# The file of the listing of an example, by the rules of Doxygen for names of files.
sub listing {
  my $name = shift;
  $name =~ s{^examples/}{};
  $name =~ s{/}{_2}g;
  $name =~ s{\.}{_8}g;
  return "$name-example.html";
}

# The path from the root, without "." and "..".
sub resolve {
  my $path = $folder eq '' ? $_[0] : "$folder/$_[0]";
  my @parts;
  for (split m{/}, $path) {
    if ($_ eq '..') { pop @parts }
    elsif ($_ ne '.' and $_ ne '') { push @parts, $_ }
  }
  return join '/', @parts;
}

sub link_to {
  my ($text, $target) = @_;
  return "[$text]($target)" if $target =~ m{^[a-z]+:};
  my ($file, $heading) = split /#/, $target, 2;
  my $path = $file eq '' ? $page : resolve($file);
  if ($path =~ m{\.md$} and -e $path) {
    return "[$text](\@ref " . label($path) . (defined $heading ? "-$heading" : '') . ')';
  }
  return "<a href=\"@{[listing($path)]}\">$text</a>" if $path =~ m{^examples/.*\.(cpp|hpp)$} and -e $path;
  return $text if -e $path;
  return "[$text](\@ref $path)";
}

open my $in, '<', $page or die "$page: $!\n";
my @lines = <$in>;
close $in;
if ($page =~ /\.hpp$/) {
  my $header = join '', @lines;
  # Lines keep their numbers.
  $header =~ s{^( *template <[^>]*>)?(\n?) *friend (?:class|struct) [^;]*;$}{$2}gm;
  my $goes_on = 0;  # whether the line before is one of the same paragraph
  for (split /^/, $header) {
    s{^( */// )((?:Lifetime|Threads|Errors|Cost):)(?= )}{$1 . ($goes_on ? '@n ' : '') . "<b>$2</b>"}e;
    $goes_on = m{^ */// \S};
    print;
  }
  exit;
}
my $n_headings = grep { /^## / } @lines;
my $own = label($page);
my $is_code = 0;
my %seen;
my $text = '';

# Links in running text, which may stand on two lines. Code comes first: operator[](int) is no link. Bold text that
# contains code is unknown to Doxygen, and the name of the library is no link to its namespace.
sub print_text {
  $text =~ s{(`[^`]*`)|(!?)\[((?:[^\[\]`]|`[^`]*`)*)\]\(([^()\s]+)\)}{$1 ? $1 : $2 ? "![$3]($4)" : link_to($3, $4)}ge;
  $text =~ s{(`[^`]*`)|\*\*((?:[^`*]|`[^`]*`)+)\*\*}{$1 ? $1 : "<b>$2</b>"}ge;
  $text =~ s{(`[^`]*`)|(?<![:\w/.])(Tresk)(?![:\w/.]\w)}{$1 ? $1 : "%$2"}ge;
  print $text;
  $text = '';
}

for (@lines) {
  if (/^\s*```/) {
    print_text();
    $is_code = !$is_code;
    print;
  } elsif ($is_code) {
    print;
  } elsif (m{^<!--\s*(examples/\S+\.(?:cpp|hpp))\b.*-->\s*$} and -e $1) {
    print_text();
    print "<div class=\"source\"><a href=\"@{[listing($1)]}\">$1</a></div>\n\n";
  } elsif (/^<!--.*-->\s*$/) {
    print_text();
  } elsif (/^(#+) (.*)$/) {
    print_text();
    my ($marks, $title) = ($1, $2);
    if ($marks eq '#') {
      print "# $title {#", ($own eq 'index' ? 'mainpage' : $own), "}\n";
      print "\n[TOC]\n" if $n_headings > 2 and $own ne 'index';
    } else {
      my $name = slug($title);
      $name .= "-$seen{$name}" if $seen{$name}++;
      print "$marks $title {#$own-$name}\n";
    }
  } else {
    $text .= $_;
    print_text() if /^\s*$/;
  }
}
print_text();
