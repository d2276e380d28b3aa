#compdef @PROGRAM@
# Completion of @PROGRAM@ for zsh.

_kova_locales() { # names of the data root, also of --root
    local -a names=(POSIX) fields
    local line
    for line in ${(f)"$(kova locales ${root:+--root=$root} 2>/dev/null)"}; do
        fields=(${=line})
        [[ $fields[-1] == */lc11/* ]] || continue
        names+=($fields[1])
        [[ $fields[2] == unicode ]] && names+=(${fields[1]/.unicode/})
    done
    compadd -a "$@" names
}

_kova_codesets() {
    local -a names fields
    local line
    for line in ${(f)"$(kova convert --list ${root:+--root=$root} 2>/dev/null)"}; do
        fields=(${=line})
        [[ $fields[1] == <-> ]] && names+=($fields[2,-1])
    done
    compadd -a "$@" names
}

_@PROGRAM@_specs() { # what a command takes
    case $1 in
@DATA@
    esac
}

_@PROGRAM@() {
    local curcontext=$curcontext state line ret=1 command=@PROGRAM@ root=
    local -i place=${words[(I)--root]}
    local -a specs
    typeset -A opt_args
    (( place )) && root=$words[place+1]
    while :; do
        _@PROGRAM@_specs $command
        state=
        _arguments -C -s : $specs && ret=0
        [[ $state == command ]] || return ret
        command+=" $words[1]"
    done
}

_@PROGRAM@ "$@"
