# Completion of cspublish's command line in bash: its options and the address. The user types names and values.

_cspublish() {
    local word=${COMP_WORDS[COMP_CWORD]}
    local address=1
    COMPREPLY=()
    [ "${COMP_WORDS[1]}" != -csid ] || address=3
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W '-csid -version 127.0.0.1' -- "$word")
    elif [ "$COMP_CWORD" -eq "$address" ]; then
        mapfile -t COMPREPLY < <(compgen -W '127.0.0.1' -- "$word")
    fi
}
complete -F _cspublish cspublish
