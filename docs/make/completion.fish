# Completion of @PROGRAM@ for fish.

function __kova_root # --root of the line
    set -l words (commandline -opc)
    for i in (seq (count $words))
        switch $words[$i]
            case --root
                test $i -lt (count $words); and echo -- --root=$words[(math $i + 1)]
            case '--root=*'
                echo -- $words[$i]
        end
    end
end

function __kova_locales # names of the data root
    echo POSIX
    for line in (kova locales (__kova_root) 2>/dev/null | string match '*/lc11/*')
        set -l fields (string split -n ' ' -- $line)
        echo $fields[1]
        test $fields[2] = unicode; and string replace .unicode '' -- $fields[1]
    end
end

function __kova_codesets
    for line in (kova convert --list (__kova_root) 2>/dev/null | string match -r '^ *\d+ .*')
        string split -n ' ' -- $line | tail -n +2
    end
end

function __@PROGRAM@_path # the words of the command at the cursor
    set -l words (commandline -opc)
    set -l path @PROGRAM@
    for word in $words[2..-1]
        string match -q -- '-*' $word; and continue
        set -l longer "$path $word"
        contains -- $longer $__@PROGRAM@_commands; or break
        set path $longer
    end
    echo $path
end

function __@PROGRAM@_at
    test (__@PROGRAM@_path) = $argv[1]
end

function __@PROGRAM@_first # no argument of the command stands before the cursor yet
    __@PROGRAM@_at $argv[1]; or return 1
    set -l words (commandline -opc)
    set -l seen 0
    set -l option ''
    for word in $words
        if contains -- "$argv[1] $option" $__@PROGRAM@_valued
            set option '' # this word is the option's value
        else if string match -q -- '-*' $word
            set option $word
        else
            set option ''
            set seen (math $seen + 1)
        end
    end
    not contains -- "$argv[1] $option" $__@PROGRAM@_valued
    and test $seen -eq (count (string split ' ' -- $argv[1]))
end

@VALUES@
@DATA@
