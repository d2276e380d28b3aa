# Reads the Markdown that docs/ is written in: headings, paragraphs, lists, tables, code, links.
#   blocks(TEXT)  a list of blocks, each with a "kind": heading (level, text, id), para (text), list
#                 (ordered, items: lists of blocks), table (rows: lists of cells), code (text, lang),
#                 html (text), note (text: a comment of its own line), terms (items: term, blocks)
#   spans(TEXT)   the parts of a line: [kind, text, target], kind being text, code, link, image, strong
package Markdown;
use strict;
use warnings;
use utf8;
use Exporter 'import';
our @EXPORT_OK = qw(blocks spans slug plain);

# The anchor of a heading, as hosts of Markdown make it.
sub slug {
    my $id = lc plain(shift);
    $id =~ s/[^\w\- ]//g;
    $id =~ s/ /-/g;
    return $id;
}

# The text without its marks.
sub plain { return join '', map { $_->[1] } spans(shift) }

sub spans {
    my $text = shift;
    my @spans;
    my $add = sub {
        my ($kind, $part, $target) = @_;
        if ($kind eq 'text' && @spans && $spans[-1][0] eq 'text') { $spans[-1][1] .= $part }
        else { push @spans, [$kind, $part, $target] }
    };
    while (length $text) {
        if ($text =~ s/^(`+)(?!`)(.*?)(?<!`)\1(?!`)//s) {
            my ($ticks, $code) = ($1, $2);
            $code =~ s/^ (.*\S.*) $/$1/s if length $ticks > 1;
            $code =~ s/\s*\n\s*/ /g;
            $add->('code', $code);
        }
        elsif ($text =~ s/^!\[([^\]]*)\]\(([^)]*)\)//) { $add->('image', $1, $2) }
        elsif ($text =~ s/^\[((?:[^\]\\]|\\.)+)\]\(([^)\s]*)\)//) { $add->('link', $1, $2) }
        elsif ($text =~ s/^\*\*(.+?)\*\*//s) { $add->('strong', $1) }
        elsif ($text =~ s/^\\([!-\/:-@\[-`{-~])//) { $add->('text', $1) }
        elsif ($text =~ s/^([^`!\[\\*]+|.)//s) { $add->('text', $1) }
    }
    return @spans;
}

# The cells of a table's row; a "|" after a backslash belongs to its cell.
sub cells {
    my $row = shift;
    $row =~ s/^\s*\|//;
    $row =~ s/(?<!\\)\|\s*$//;
    return [map { s/\\\|/|/gr =~ s/^\s+|\s+$//gr } split /(?<!\\)\|/, $row, -1];
}

my $item = qr/^(-|\d+\.) +/;

# Takes the lines of one list: its items' first lines and what is indented as these are.
sub take_list {
    my ($lines, $number) = @_;
    my $ordered = $lines->[0] =~ /^\d/ ? 1 : 0;
    my @items;
    while (@$lines && $lines->[0] =~ $item) {
        my $indent = length $&;
        my $first = $number;
        my @own = (substr shift @$lines, $indent);
        $number++;
        while (@$lines && ($lines->[0] =~ /^ {2,}\S/
                || ($lines->[0] eq '' && @$lines > 1 && $lines->[1] =~ /^ {2,}\S/))) {
            push @own, shift(@$lines) =~ s/^ {0,$indent}//r;
            $number++;
        }
        push @items, [blocks(\@own, $first)];
        while (@$lines > 1 && $lines->[0] eq '' && $lines->[1] =~ $item) { shift @$lines; $number++ }
    }
    return ({kind => 'list', ordered => $ordered, items => \@items}, $number);
}

sub blocks {
    my ($text, $number) = @_; # number of the first line
    my @lines = ref $text ? @$text : split /\n/, $text;
    $number ||= 1;
    my @blocks;
    my $take = sub { $number++; return shift @lines };
    while (@lines) {
        my ($line, $at) = ($lines[0], $number);
        if ($line =~ /^\s*$/) { $take->(); next }
        my $block;
        if ($line =~ /^```(\w*)/) {
            my $lang = $1;
            my @code;
            $take->();
            push @code, $take->() while @lines && $lines[0] !~ /^```/;
            $take->();
            $block = {kind => 'code', lang => $lang, text => join '', map { "$_\n" } @code};
        }
        elsif ($line =~ /^ {4}/) {
            my @code;
            push @code, $take->() =~ s/^ {4}//r while @lines && $lines[0] =~ /^ {4}|^$/;
            pop @code while $code[-1] eq '';
            $block = {kind => 'code', lang => '', text => join '', map { "$_\n" } @code};
        }
        elsif ($line =~ /^(#+) +(.*)/) {
            $block = {kind => 'heading', level => length $1, text => $2, id => slug($2)};
            $take->();
        }
        elsif ($line =~ /^<!-- *(.*?) *-->$/) { $block = {kind => 'note', text => $1}; $take->() }
        elsif ($line =~ /^</) {
            my @html;
            push @html, $take->() while @lines && $lines[0] ne '';
            $block = {kind => 'html', text => join "\n", @html};
        }
        elsif ($line =~ /^\|/) {
            my @rows;
            push @rows, $take->() while @lines && $lines[0] =~ /^\|/;
            splice @rows, 1, 1;
            $block = {kind => 'table', rows => [map { cells($_) } @rows]};
        }
        elsif ($line =~ $item) {
            ($block, $number) = take_list(\@lines, $number);
        }
        else {
            my @para = ($take->());
            push @para, $take->() while @lines && $lines[0] !~ /^\s*$|^- |^1\. |^\||^```|^#/;
            $block = {kind => 'para', text => join "\n", @para};
        }
        $block->{line} = $at;
        push @blocks, $block;
    }
    return @blocks;
}

1;
