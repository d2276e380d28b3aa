# Writes blocks of Markdown.pm as HTML, and pages of the manual around them.
package Html;
use strict;
use warnings;
use utf8;
use Exporter 'import';
our @EXPORT_OK = qw(html_blocks html_text html_code html_page escape);
use Markdown qw(spans plain);

sub escape {
    my %named = ('&' => '&amp;', '<' => '&lt;', '>' => '&gt;', '"' => '&quot;');
    return shift =~ s/[&<>"]/$named{$&}/gr;
}

# CONTEXT: link, a function from a link's target to its address here; name, from a name of the
# interface to its address or nothing; picture, from the words of a command to HTML.
sub html_text {
    my ($text, $context) = @_;
    my $out = '';
    for (spans($text)) {
        my ($kind, $part, $target) = @$_;
        if ($kind eq 'code') {
            my $place = $context->{name}->($part =~ s/\(.*//sr);
            my $code = '<code>' . escape($part) . '</code>';
            $out .= $place ? "<a href=\"$place\">$code</a>" : $code;
        }
        elsif ($kind eq 'strong') { $out .= '<strong>' . html_text($part, $context) . '</strong>' }
        elsif ($kind eq 'link') {
            my $place = $context->{link}->($target);
            $part = $context->{title}->($target) || $part if $part =~ /^[\w-]+\.md$/;
            my $inner = html_text($part, {%$context, name => sub { '' }});
            $out .= defined $place ? '<a href="' . escape($place) . "\">$inner</a>" : $inner;
        }
        elsif ($kind eq 'image') {
            $out .= '<img src="' . escape($target) . '" alt="' . escape($part) . '">';
        }
        else { $out .= escape($part) }
    }
    return $out;
}

# Code with links from the names of the interface that it uses.
sub html_code {
    my ($code, $context) = @_;
    my $out = escape($code);
    $out =~ s{\b((?:ko|im|is|sl|KO|KOVA)_\w+|\w+_(?:multi|t)\b|thaismo\w+)}{
        my ($name, $place) = ($1, $context->{name}->($1));
        $place ? "<a href=\"$place\">$name</a>" : $name
    }ge;
    $out =~ s{(/\*.*?\*/)}{<i>$1</i>}gs;
    return $out;
}

# Lines after "$ " are typed, the others are shown by what was typed.
sub session {
    my $text = escape(shift);
    $text =~ s/^(\$) (.*)$/<span class="prompt">$1<\/span> <b>$2<\/b>/mg;
    return $text;
}

sub table {
    my ($rows, $context) = @_;
    my ($head, @rows) = @$rows;
    my $out = '<div class="wide"><table>';
    $out .= '<thead><tr>' . join('', map { '<th>' . html_text($_, $context) . '</th>' } @$head) . "</tr></thead>\n"
        if grep { $_ ne '' } @$head;
    $out .= '<tr>' . join('', map { '<td>' . html_text($_, $context) . '</td>' } @$_) . "</tr>\n" for @rows;
    return "$out</table></div>\n";
}

sub html_blocks {
    my ($blocks, $context) = @_;
    my $out = '';
    for my $block (@$blocks) {
        my $kind = $block->{kind};
        if ($kind eq 'heading') {
            my ($level, $id) = ($block->{level}, $block->{id});
            $out .= "<h$level id=\"$id\">" . html_text($block->{text}, $context)
                . " <a class=\"here\" href=\"#$id\" aria-label=\"link to this section\">#</a></h$level>\n";
        }
        elsif ($kind eq 'para') { $out .= '<p>' . html_text($block->{text}, $context) . "</p>\n" }
        elsif ($kind eq 'code') {
            my $code = $block->{lang} eq 'c' ? html_code($block->{text}, $context) : session($block->{text});
            $out .= "<pre tabindex=\"0\"><code>$code</code></pre>\n";
        }
        elsif ($kind eq 'table') { $out .= table($block->{rows}, $context) }
        elsif ($kind eq 'list') {
            my $tag = $block->{ordered} ? 'ol' : 'ul';
            $out .= "<$tag>\n" . join('', map { '<li>' . html_blocks($_, $context) =~ s{^<p>(.*?)</p>}{$1}sr
                . "</li>\n" } @{$block->{items}}) . "</$tag>\n";
        }
        elsif ($kind eq 'terms') {
            $out .= '<dl>' . join('', map { '<dt><code>' . escape($_->[0]) . '</code></dt><dd>'
                . html_blocks($_->[1], $context) . '</dd>' } @{$block->{items}}) . "</dl>\n";
        }
        elsif ($kind eq 'html') { $out .= "$block->{text}\n" }
        elsif ($kind eq 'note' && $block->{text} =~ /^picture: (.*)/) { $out .= $context->{picture}->($1) }
        elsif ($kind eq 'note' && $block->{text} =~ /^file: (.*)/) { $out .= '<div class="file">' . escape($1) . "</div>\n" }
    }
    return $out;
}

my $style = <<'END';
:root { color-scheme: light dark; --text: #1c1e21; --faint: #5b626b; --ground: #fff; --code: #f3f4f6;
  --line: #d9dce1; --link: #0b57b0; --typed: #14532d; }
@media (prefers-color-scheme: dark) { :root { --text: #e3e6ea; --faint: #a0a8b2; --ground: #15181c;
  --code: #20252b; --line: #363d46; --link: #8ab8ff; --typed: #9be0b4; } }
* { box-sizing: border-box; }
html { scroll-padding-top: 1rem; }
body { margin: 0; color: var(--text); background: var(--ground); font: 1rem/1.55 system-ui, sans-serif;
  display: grid; grid-template-columns: 15rem minmax(0, 1fr); }
a { color: var(--link); text-decoration: none; } a:hover, a:focus { text-decoration: underline; }
nav { border-right: 1px solid var(--line); padding: 1.2rem; font-size: .92rem; position: sticky; top: 0;
  height: 100vh; overflow-y: auto; }
nav summary { font-weight: 600; margin: .5rem 0; cursor: pointer; } nav .home { font-size: 1.15rem; font-weight: 700; }
nav ul { list-style: none; margin: 0; padding: 0 0 0 .8rem; } nav li { margin: .15rem 0; }
nav [aria-current] { color: var(--text); font-weight: 600; }
main { padding: 1.5rem clamp(1rem, 4vw, 3rem) 4rem; max-width: 62rem; }
h1 { font-size: 1.8rem; line-height: 1.2; margin: .3rem 0 1rem; } h2 { font-size: 1.35rem; margin: 2.2rem 0 .6rem;
  border-bottom: 1px solid var(--line); } h3 { font-size: 1.1rem; margin: 1.6rem 0 .4rem; }
.here { color: var(--line); font-weight: 400; } :hover > .here, .here:focus { color: var(--link); }
code { font: .9em/1.45 ui-monospace, "DejaVu Sans Mono", Menlo, Consolas, monospace; background: var(--code);
  border-radius: .2rem; padding: .08em .25em; overflow-wrap: anywhere; }
pre { background: var(--code); border: 1px solid var(--line); border-radius: .4rem; padding: .7rem .9rem;
  overflow-x: auto; } pre code { background: none; padding: 0; overflow-wrap: normal; }
pre i { color: var(--faint); font-style: normal; } pre b { color: var(--typed); font-weight: 600; }
div.file { color: var(--faint); font-size: .85rem; margin: .8rem 0 -.7rem; } .contents { display: none; }
.prompt { color: var(--faint); user-select: none; }
.wide { overflow-x: auto; } table { border-collapse: collapse; margin: .6rem 0; font-size: .95rem; }
th, td { border: 1px solid var(--line); padding: .3rem .6rem; text-align: left; vertical-align: top; }
th { background: var(--code); } td code { overflow-wrap: normal; } .options td:first-child code { white-space: nowrap; } dt { margin-top: .6rem; } dd { margin-left: 1.5rem; }
dd p { margin: .2rem 0; } li { margin: .25rem 0; } img { max-width: 100%; height: auto; }
.entry { margin: 1.6rem 0; scroll-margin-top: 1rem; } .entry pre { margin-bottom: .4rem; }
figure { margin: 1.2rem 0; } figure iframe { width: 100%; height: 26rem; border: 1px solid var(--line);
  border-radius: .4rem; background: var(--ground); } figcaption { color: var(--faint); font-size: .9rem; }
.cards { display: grid; grid-template-columns: repeat(auto-fill, minmax(15rem, 1fr)); gap: .8rem; padding: 0;
  list-style: none; } .cards li { border: 1px solid var(--line); border-radius: .4rem; padding: .7rem .9rem; margin: 0; }
footer { color: var(--faint); font-size: .85rem; margin-top: 3rem; }
@media (max-width: 52rem) { body { display: flex; flex-direction: column; } nav { order: 2; position: static;
  height: auto; border-right: 0; border-top: 1px solid var(--line); padding: .7rem 1rem; } main { max-width: 100%; }
  .contents { display: block; float: right; } main { padding-top: .8rem; } h1 { font-size: 1.5rem; } }
@media print { nav, .here { display: none; } body { display: block; } }
END

# A page: title, body, and the table of contents as [title, open, [address, text], ...] for each part.
sub html_page {
    my ($title, $body, $contents, $own, $version) = @_;
    my $nav = '';
    for (@$contents) {
        my ($part, $open, @pages) = @$_;
        my $here = grep { $_->[0] eq $own } @pages;
        $nav .= '<details' . ($open || $here ? ' open' : '') . '><summary>' . escape($part) . "</summary><ul>\n"
            . join('', map { "<li><a href=\"$_->[0]\"" . ($_->[0] eq $own ? ' aria-current="page"' : '') . '>'
                . escape($_->[1]) . "</a></li>\n" } @pages) . "</ul></details>\n";
    }
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        . "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" . escape($title)
        . "</title>\n<style>\n$style</style>\n</head>\n<body>\n<nav id=\"contents\" aria-label=\"Contents\"><a class=\"home\" "
        . "href=\"index.html\">Kova $version</a>\n$nav</nav>\n<main>\n<a class=\"contents\" href=\"#contents\">Contents</a>\n"
        . "$body<footer>Kova $version</footer>\n</main>\n"
        . "</body>\n</html>\n";
}

1;
