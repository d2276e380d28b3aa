# Where the text of the manual comes from: what the commands say of their options, the comments of the
# headers, the pages of docs/, and which of them belong together.
package Sources;
use strict;
use warnings;
use utf8;
use Exporter 'import';
our @EXPORT_OK = qw(read_file write_file commands header pages page_of families $version);
use Markdown qw(blocks);

our $version = '';

sub read_file {
    my $path = shift;
    open my $in, '<:utf8', $path or die "$0: cannot read $path: $!\n";
    local $/;
    return scalar <$in>;
}

sub write_file {
    my ($path, $text) = @_;
    open my $out, '>:utf8', $path or die "$0: cannot write $path: $!\n";
    print $out $text;
    close $out or die "$0: cannot write $path: $!\n";
}

# What PROGRAM --describe prints: commands in order, each with words, about, options, arguments, footer.
sub commands {
    my $program = shift;
    open my $in, '-|:utf8', $program, '--describe' or die "$0: cannot run $program: $!\n";
    my @commands;
    while (my $line = <$in>) {
        chomp $line;
        my ($kind, $words, @fields) = map {
            s/\\(.)/$1 eq 'n' ? "\n" : $1 eq 't' ? "\t" : $1/ger
        } split /\t/, $line, -1;
        push @commands, {words => $words, about => $fields[0], options => [], arguments => []}
            if $kind eq 'command';
        my $own = $commands[-1];
        $own->{footer} = $fields[0] if $kind eq 'footer';
        next if $kind !~ /^(option|argument)$/;
        my %option;
        @option{qw(names value marks about default excludes needs)} = @fields;
        $option{value} = $option{names} if $kind eq 'argument';
        $option{choice} = [split /,/, $1] if $option{value} =~ s/\{(.*)\}$//;
        push @{$own->{"${kind}s"}}, \%option;
    }
    close $in or die "$0: $program --describe failed\n";
    return @commands;
}

# The text of a comment as blocks: paragraphs, and terms where a line has a name, blanks and a text.
sub comment_blocks {
    my $text = shift;
    $text =~ s{^\s*/\*\s?}{};
    $text =~ s{\s*\*/\s*$}{};
    my @blocks;
    my $indent = 0;
    for my $line (map { s{^ ?\* ?}{}r } split /\n/, $text) {
        my $last = $blocks[-1];
        if ($line =~ /^\s*$/) { push @blocks, {kind => 'gap'} }
        elsif ($line =~ /^ {2,}(\S(?:.*?\S)?) {2,}(\S.*)$/ && !($last && $last->{kind} eq 'terms'
                && $line =~ /^ {$indent}/)) {
            my ($term, $said) = ($1, $2);
            $indent = $-[2];
            push @blocks, $last = {kind => 'terms', items => []} if !$last || $last->{kind} ne 'terms';
            push @{$last->{items}}, [$term, [{kind => 'para', text => $said}]];
        }
        elsif ($line =~ /^ {2}/ && $last && $last->{kind} eq 'terms') {
            $last->{items}[-1][1][0]{text} .= $line =~ s/^ +/\n/r;
        }
        elsif ($last && $last->{kind} eq 'para') { $last->{text} .= "\n$line" }
        else { push @blocks, {kind => 'para', text => $line} }
    }
    return [map { coded($_) } grep { $_->{kind} ne 'gap' } @blocks];
}

# Names of the interface in a comment are code.
sub coded {
    my $block = shift;
    my $mark = sub {
        my $text = shift;
        $text =~ s/([\[\]*\\])/\\$1/g;
        $text =~ s/"([^"\n]*)"/index($1, '`') < 0 ? qq("$1") : $&/ge;
        $text =~ s/(?<![\w\/`])((?:\\\*)?(?:(?:ko|KO|im|is|KOVA)_\w*(?:\.\.\.)?|VANTORDIR|KOVALOG|KOVADEBUG))/
            '`' . ($1 =~ s{\\}{}gr) . '`'/ge;
        return $text;
    };
    $block->{text} = $mark->($block->{text}) if defined $block->{text};
    for (@{$block->{items} || []}) { $_->{text} = $mark->($_->{text}) for @{$_->[1]} }
    return $block;
}

sub functions {
    my $code = shift =~ s{/\*.*?\*/}{}gsr;
    return $code =~ /^(?!typedef|#)\w[\w *]*?(\w+)\([^;]*;/mg;
}

# The names that declarations introduce beside functions: types, macros and constants.
sub declared {
    my $code = shift;
    my @names;
    $code =~ s{/\*.*?\*/}{}gs;
    push @names, $1 while $code =~ /^typedef [^({;]*?(\w+);/mg;
    push @names, $1 while $code =~ /^typedef [^;{]*?\(\*?(\w+)\)/mg;
    push @names, $1 while $code =~ /^\} (\w+);/mg;
    push @names, $1 while $code =~ /^#define (KO_\w+)/mg;
    push @names, $1 while $code =~ /^\s+(KO_\w+)(?: = [^,\n]*)?,?\s*$/mg;
    return @names;
}

# Declarations without the mark of exports, whose continuation lines move with them.
sub tidy {
    my $code = shift;
    $code =~ s/\s+$/\n/;
    $code =~ s/^KO_API (.*?;)/$1 =~ s{^ {7}}{}mgr/gmse;
    return $code;
}

# A header's sections: title, and entries of comment (blocks) and code. The first has no title.
sub header {
    my $path = shift;
    my $text = read_file($path);
    my ($head, $rest) = $text =~ m{^(/\*.*?\*/)\n(.*)}s;
    my @sections = ({title => '', entries => [{comment => comment_blocks($head), code => ''}]});
    $rest =~ s/^#ifdef __cplusplus\n.*?^#endif\n//msg;
    $rest =~ s/^#ifndef __cplusplus\n.*?^#endif\n//msg;
    $rest =~ s/^#if defined\(_WIN32\).*?^#endif\n#else\n.*?^#endif\n//ms;
    $rest =~ s/^#(ifndef KOVA_|define KOVA_|include|endif).*\n//mg;
    my ($comment, $code) = ('', '');
    my $finish = sub {
        push @{$sections[-1]{entries}}, {comment => comment_blocks($comment), code => tidy($code),
            functions => [functions(tidy($code))],
            names => [declared($code)]} if $comment . $code =~ /\S/;
        ($comment, $code) = ('', '');
    };
    while (length $rest) {
        if ($rest =~ s{^/\* ---- (.*?) -+ \*/\n}{}) { $finish->(); push @sections, {title => $1, entries => []} }
        elsif ($rest =~ s{^/\*.*?\*/\n}{}s) { $finish->(); $comment = $& }
        elsif ($rest =~ s{^\n}{}) { $finish->() if $code =~ /\S/ }
        elsif ($rest =~ s{\A((?:typedef )?(?:struct|enum)[^;\n]*\{\n.*?^\}[^;]*;[^\n]*\n)}{}ms) { $code .= $1 }
        else { $rest =~ s{^[^\n]*\n?}{}; $code .= $& }
    }
    $finish->();
    return @sections;
}

# Families of the interface: name, title, sections of kova.h and kova_host.h, pages of docs.
my @families = (
    ['kova-locale', 'locale records: loading, opening, versions', ['Locale records'],
        ['Locale records'], ['hosts']],
    ['kova-names', 'names of locales and code sets, registry, file names',
        ['Names, registry, file naming'], ['Names'], []],
    ['kova-hooks', 'host hooks, messages, errors, data files', ['Host hooks and services'], ['Errors'],
        []],
    ['kova-info', 'what a locale says of itself', ['Information queries'], [], []],
    ['kova-characters', 'classes, case, multibyte and wide characters',
        ['Classes and case', 'Multibyte and wide conversion, lengths'], [], ['characters']],
    ['kova-strings', 'strings and streams', ['Strings', 'Streams'], [], ['strings']],
    ['kova-collation', 'order of texts and sort keys', ['Collation'], ['Texts with a length'],
        ['collation']],
    ['kova-numbers', 'numbers from and to text', ['Numbers'], [], ['numbers']],
    ['kova-money', 'amounts of money from and to text', ['Money'], [], ['money']],
    ['kova-time', 'dates and times from and to text, calendars', ['Dates and times'], [],
        ['time', 'calendars']],
    ['kova-conversion', 'conversion from one code set to another', ['Code-set conversion'],
        ['Conversion'], []],
    ['kova-charmap', 'symbolic names of characters', ['Charmaps'], [], []],
    ['kova-tables', 'look-up tables of multibyte characters', ['Multibyte look-up tables'], [],
        ['tables']],
);
sub families { return map { {name => $_->[0], title => $_->[1], kova => $_->[2], host => $_->[3],
    docs => $_->[4]} } @families }

# Pages of docs that describe files, and their place among the manual pages.
my @files = (
    ['kova-lco', 'locale objects', 'locale-object'],
    ['kova-cmo', 'charmap objects', 'charmaps'],
    ['kova-cvo', 'conversion objects and their compiler', 'conversion'],
    ['kova-registry', 'the registry of code sets', 'registry'],
);
sub pages { return map { {name => $_->[0], title => $_->[1], docs => $_->[2]} } @files }

# The manual page that holds a page of docs, such as "kova-time(3)"; empty where none does.
sub page_of {
    my $target = shift;
    my ($name) = $target =~ m{([\w-]+)\.md(?:#.*)?$} or return '';
    return "$name(1)" if $name eq 'kova' || $name eq 'kovac';
    for my $family (families()) {
        return "$family->{name}(3)" if grep { $_ eq $name } @{$family->{docs}};
    }
    for (pages()) { return "$_->{name}(5)" if $_->{docs} eq $name }
    return '';
}

1;
