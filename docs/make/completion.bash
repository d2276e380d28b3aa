# Completion of @PROGRAM@ for bash.

_@PROGRAM@_names() { # locale or codeset; names of the data root, also of --root
    local name set rest program=kova IFS=$' \t\n'
    [[ ${COMP_WORDS[0]##*/} == kova ]] && program=${COMP_WORDS[0]}
    if [[ $1 == locale ]]; then
        echo POSIX
        "$program" locales ${root:+"$root"} 2>/dev/null | while read -r name set rest; do
            [[ $rest == */lc11/* ]] || continue
            echo "$name"
            [[ $set != unicode ]] || echo "${name/.unicode/}"
        done
    else
        "$program" convert --list ${root:+"$root"} 2>/dev/null | while read -r set name rest; do
            [[ $set =~ ^[0-9]+$ ]] && printf '%s\n' $name $rest
        done
    fi
}

_@PROGRAM@_data() { # what a command takes
    commands= arguments= options=
    case $1 in
@DATA@
    esac
}

_@PROGRAM@_value() { # what an option of a command takes
    kind=
    case $1 in
@VALUES@
    esac
}

_@PROGRAM@_complete() { # kind, beginning
    local IFS=$'\n'
    case $1 in
    file) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -f -- "$2")) ;;
    directory) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -d -- "$2")) ;;
    locale | codeset) COMPREPLY=($(compgen -W "$(_@PROGRAM@_names "$1")" -- "$2")) ;;
    words*) COMPREPLY=($(compgen -W "$(printf '%s\n' ${1#words } | tr ' ' '\n')" -- "$2")) ;;
    esac
}

# The words before the one at the cursor; bash cuts words at these signs.
_@PROGRAM@_words() {
    local i word glue=
    words=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == [=@:]* || $glue ]] && ((${#words[@]})); then
            words[${#words[@]} - 1]+=$word
        else
            words+=("$word")
        fi
        glue=
        [[ $word == *[=@:] ]] && glue=1
    done
    # The word at the cursor may have been cut, too.
    if ((${#words[@]})) && [[ $cur == *[=@:]* && $cur == "${words[${#words[@]} - 1]}"* ]]; then
        unset "words[${#words[@]}-1]"
    fi
}

_@PROGRAM@() {
    local line=${COMP_LINE:0:COMP_POINT} path=@PROGRAM@ count=0 root= waiting= kind= word cur head
    local commands arguments options
    local -a words kinds
    cur=${line##*[[:space:]]}
    _@PROGRAM@_words
    _@PROGRAM@_data "$path"
    for word in "${words[@]}"; do
        if [[ $waiting ]]; then
            [[ $waiting == --root ]] && root="--root=$word"
            waiting=
        elif [[ $commands && " $commands " == *" $word "* ]]; then
            path+=" $word"
            _@PROGRAM@_data "$path"
        elif [[ $word == --*=* ]]; then
            [[ $word == --root=* ]] && root=$word
        elif [[ $word == -?* ]]; then
            _@PROGRAM@_value "$path $word"
            [[ ! $kind || $kind == optional* ]] || waiting=$word
        else
            count=$((count + 1))
        fi
    done
    COMPREPLY=()
    if [[ $waiting ]]; then
        _@PROGRAM@_value "$path $waiting"
        _@PROGRAM@_complete "$kind" "$cur"
    elif [[ $cur == --*=* ]]; then
        _@PROGRAM@_value "$path ${cur%%=*}"
        head=${cur%%=*}=
        _@PROGRAM@_complete "${kind#optional }" "${cur#*=}"
        COMPREPLY=("${COMPREPLY[@]/#/$head}")
    elif [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
    elif [[ $commands ]]; then
        COMPREPLY=($(compgen -W "$commands" -- "$cur"))
    else
        read -ra kinds <<<"$arguments"
        ((${#kinds[@]} > 1)) && [[ ${kinds[${#kinds[@]} - 1]} == '*' ]] &&
            ((count >= ${#kinds[@]} - 1)) && count=$((${#kinds[@]} - 2))
        _@PROGRAM@_complete "${kinds[count]}" "$cur"
    fi
    # bash replaces only what follows the last sign at which it cuts words.
    head=${cur%"${cur##*[=@:]}"}
    [[ ! $head ]] || COMPREPLY=("${COMPREPLY[@]#"$head"}")
}
complete -F _@PROGRAM@ @PROGRAM@
