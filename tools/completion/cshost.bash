# Completion of cshost's command line in bash.

_cshost() {
    local word=${COMP_WORDS[COMP_CWORD]} command='' i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            run) command=run ;;
            --) # The rest is another program's.
                if [ "$command" = run ]; then
                    mapfile -t COMPREPLY < <(compgen -c -- "$word")
                fi
                return
                ;;
        esac
    done
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --listen)
            mapfile -t COMPREPLY < <(compgen -W '127.0.0.1 0.0.0.0' -- "$word")
            return
            ;;
        --events)
            mapfile -t COMPREPLY < <(compgen -W 'text json' -- "$word")
            return
            ;;
        --port | --version-text | --protocol-version | --assign-id | --set | --repeat)
            return # The user types numbers and texts.
            ;;
        --junit)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
    esac
    local options='run -h --help --listen --port --version-text --protocol-version --assign-id --set --events --quiet'
    if [ "$command" = run ]; then
        options='-h --help --listen --port --junit --repeat --show-events'
        [[ $word == -* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -F _cshost cshost
