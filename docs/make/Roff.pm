# Writes blocks of Markdown.pm as a page for man(1).
package Roff;
use strict;
use warnings;
use utf8;
use Exporter 'import';
our @EXPORT_OK = qw(roff_head roff_blocks roff_text roff_code roff_terms roff_literal);
use Markdown qw(spans plain);

# Characters that roff would change, and all beyond ASCII, by name.
sub escaped {
    my ($text, $code) = @_;
    my %spelled = ('\\' => '\\[rs]', '^' => '\\[ha]', '~' => '\\[ti]', '`' => '\\[ga]');
    $text =~ s/[\\^~`]/$spelled{$&}/g;
    $text =~ s/'/\\[aq]/g, $text =~ s/-/\\-/g, $text =~ s/"/\\[dq]/g if $code;
    $text =~ s/[^\x00-\x7e]/sprintf '\\[u%04X]', ord $&/ge;
    return $text;
}

sub guarded { return shift =~ s/^(?=[.'])/\\&/mgr }

sub roff_code { return '\\fB' . escaped(shift, 1) . '\\fR' }

# The text of a line with its marks; PLACE gives the page of a link's target.
sub marked {
    my ($text, $place) = @_;
    my $out = '';
    for (spans($text)) {
        my ($kind, $part, $target) = @$_;
        if ($kind eq 'code') { $out .= roff_code($part) }
        elsif ($kind eq 'strong') { $out .= '\\fB' . marked($part, $place) . '\\fR' }
        elsif ($kind eq 'link') { $out .= linked($part, $target, $place) }
        elsif ($kind ne 'image') { $out .= escaped($part, 0) }
    }
    return $out;
}

sub linked {
    my ($text, $target, $place) = @_;
    my $page = $place ? $place->($target) : '';
    my $name = $page =~ s/^([\w-]+)/\\fB$1\\fR/r;
    $name =~ s/-/\\-/g;
    return $name if $page && $text =~ /\.(md|h)$/;
    return marked($text, $place) . ($page ? " ($name)" : '');
}

# In lines of at most 78 characters, a sentence's end at the end of one, as roff expects it.
sub roff_text {
    my ($text, @lines) = ('');
    for my $word (split ' ', marked(@_)) {
        if ($text ne '' && (length("$text $word") > 78 || $text =~ /[.:]\)?$/)) { push @lines, $text; $text = '' }
        $text .= ($text eq '' ? '' : ' ') . $word;
    }
    return guarded(join "\n", @lines, $text);
}

sub roff_literal {
    my $text = shift;
    $text =~ s/\n+$//;
    return ".PP\n.RS 4\n.nf\n" . guarded(escaped($text, 1)) . "\n.fi\n.RE\n";
}

sub width_of { return length plain(shift) }

# A table that fits into a line is drawn; of a wider one each row becomes an item of a list.
sub table {
    my ($rows, $place) = @_;
    my @widths;
    for my $row (@$rows) {
        for my $i (0 .. $#$row) {
            my $width = width_of($row->[$i]);
            $widths[$i] = $width if $width > ($widths[$i] || 0);
        }
    }
    my $sum = 3 * @widths;
    $sum += $_ || 0 for @widths;
    return $sum <= 68 ? drawn($rows, $place, scalar @widths) : listed($rows, $place);
}

sub drawn {
    my ($rows, $place, $columns) = @_;
    my @lines = map {
        join "\x01", map { s/^(?=[_=\\.']+$|[.'])/\\&/r } map { marked($_, $place) } @$_
    } @$rows;
    my $all = join '', @lines;
    my ($tab) = grep { index($all, $_) < 0 } qw(@ ! ? $ % & + * 7 Q);
    tr/\x01/\x02/ for @lines;
    s/\x02/$tab/g for @lines;
    my $head = shift @lines;
    my @format = ("tab($tab);", join(' ', ('lb') x $columns), join(' ', ('l') x $columns) . '.');
    if ($head !~ /[^\Q$tab\E]/) { splice @format, 1, 1; $head = undef }
    return join "\n", '.PP', '.TS', @format, defined $head ? $head : (), @lines, ".TE\n";
}

sub listed {
    my ($rows, $place) = @_;
    my ($head, @rows) = @$rows;
    my $out = '';
    for my $row (@rows) {
        my ($tag, @rest) = map { marked($_, $place) } @$row;
        my @said;
        for my $i (0 .. $#rest) {
            next if $rest[$i] eq '';
            my $title = @rest > 1 ? marked($head->[$i + 1], $place) : '';
            push @said, ($title eq '' ? '' : "\\fI$title\\fR:\n") . roff_text($row->[$i + 1], $place);
        }
        $tag = '\\ ' if $tag eq '';
        $out .= ".TP\n" . guarded($tag) . "\n" . (join("\n.br\n", @said) || '\\&') . "\n";
    }
    return $out;
}

sub roff_list {
    my ($block, $place) = @_;
    my $out = '';
    my $number = 1;
    for my $item (@{$block->{items}}) {
        my $mark = $block->{ordered} ? $number++ . '.' : '\\(bu';
        my ($first, @more) = @$item;
        $out .= ".IP $mark 4\n" . roff_text($first->{text}, $place) . "\n";
        $out .= ".RS 4\n" . roff_blocks(\@more, $place) . ".RE\n" if @more;
    }
    return $out;
}

# Tags with the text that explains them: pairs of roff and blocks.
sub roff_terms {
    my ($terms, $place) = @_;
    my $out = '';
    for (@$terms) {
        my ($tag, @blocks) = @$_;
        my $text = roff_blocks(\@blocks, $place);
        $text =~ s/^\.PP\n//;
        $out .= ".TP\n$tag\n" . ($text || "\\&\n");
    }
    return $out;
}

sub roff_blocks {
    my ($blocks, $place) = @_;
    my $out = '';
    my $before = '';
    for my $block (@$blocks) {
        my $kind = $block->{kind};
        if ($kind eq 'heading') {
            my $title = marked($block->{text}, $place) =~ s/\\f[BIR]//gr;
            $out .= ($block->{level} < 3 ? '.SS' : ".PP\n.B") . ' "' . $title =~ s/"/\\[dq]/gr . "\"\n";
        }
        elsif ($kind eq 'para') {
            $out .= ($before eq 'heading' ? '' : ".PP\n") . roff_text($block->{text}, $place) . "\n";
        }
        elsif ($kind eq 'code') { $out .= roff_literal($block->{text}) }
        elsif ($kind eq 'table') { $out .= table($block->{rows}, $place) }
        elsif ($kind eq 'list') { $out .= roff_list($block, $place) }
        elsif ($kind eq 'terms') {
            $out .= roff_terms([map { [roff_code($_->[0]), @{$_->[1]}] } @{$block->{items}}], $place);
        }
        # A heading of the third level is a paragraph in bold.
        $before = $kind eq 'heading' && $block->{level} > 2 ? '' : $kind;
    }
    return $out;
}

sub roff_head {
    my ($name, $section, $date, $version) = @_;
    return "'\\\" t\n.TH " . uc($name) . " $section \"$date\" \"Kova $version\" \"Kova manual\"\n"
        . ".ie \\n(.g .ds Aq \\(aq\n.el .ds Aq '\n.nh\n.ad l\n";
}

1;
