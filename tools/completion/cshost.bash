# Completion of cshost's command line in bash.

_cshost() {
    local word=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --listen)
            mapfile -t COMPREPLY < <(compgen -W '127.0.0.1 0.0.0.0' -- "$word")
            return
            ;;
        --events)
            mapfile -t COMPREPLY < <(compgen -W 'text json' -- "$word")
            return
            ;;
        --port | --version-text | --protocol-version | --assign-id | --set)
            return # The user types numbers and texts.
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W '-h --help --listen --port --version-text --protocol-version --assign-id
        --set --events --quiet' -- "$word")
}
complete -F _cshost cshost
