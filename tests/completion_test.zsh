# completion_test.zsh DIR LINE: what zsh offers at the end of LINE, one a line. An interactive zsh on a
# terminal of its own completes it; what the completion adds is written instead of shown.
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "PROMPT= RPS1= ; stty -echo; fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w shell 'compadd() {
    local -a hits; local -i at=${@[(i)(-|--)]}
    if [[ ${@[1,at]} == *-[OAD]* ]] { builtin compadd "$@"; return }
    builtin compadd -A hits "$@"
    (( $#hits )) && print -r -l -- \<${^hits}\>
    builtin compadd "$@"
}
offer() { print -r BEGIN; _main_complete; compstate[insert]= compstate[list]=; print -r END; exit }
zle-line-init() { print -r BE""GUN }; zle -N zle-line-init
zle -C offer complete-word offer; bindkey ^X offer'
# What the shell has not begun to edit may be lost.
zpty -r shell seen '*BEGUN*'
zpty -n -w shell "$2"$'\x18'
zpty -r shell seen '*END*'
for word in ${(f)${seen##*BEGIN}//$'\r'}; do [[ $word == '<'*'>' ]] && print -r -- ${word[2,-2]}; done
zpty -d shell
