# Completion of csx's command line in bash.

_csx() {
    local word=${COMP_WORDS[COMP_CWORD]} command='' i
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --file)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        -o | --output)
            if [[ " ${COMP_WORDS[*]} " == *" convert "* || " ${COMP_WORDS[*]} " == *" plot "* ]]; then
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
                return
            fi
            mapfile -t COMPREPLY < <(compgen -W 'text json csv' -- "$word")
            return
            ;;
        --time)
            mapfile -t COMPREPLY < <(compgen -W 'abs rel delta none' -- "$word")
            return
            ;;
        --as)
            mapfile -t COMPREPLY < <(compgen -W 'host client' -- "$word")
            return
            ;;
        --rules)
            mapfile -t COMPREPLY < <(compgen -A file -- "$word")
            return
            ;;
        -H | --host)
            mapfile -t COMPREPLY < <(compgen -A hostname -- "$word")
            return
            ;;
        -w | --write)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        --to)
            if [[ " ${COMP_WORDS[*]} " == *" convert "* ]]; then
                mapfile -t COMPREPLY < <(compgen -W 'csv scenario pcap' -- "$word")
                return
            fi
            mapfile -t COMPREPLY < <(compgen -A hostname -- "$word")
            return
            ;;
        --rotate | --keep | --sync | --id | --timeout | -n | --count | --for | --max-rate | --within | --echo | --publish | \
            --rate | --start | --skip-gaps | --only | --rename | --listen | --port | --patience | --tolerance | --window)
            return # The user types numbers, times and names.
            ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            get | put | watch | wait | record | replay | convert | plot | stats | info | doctor | completion) command=${COMP_WORDS[i]} ;;
        esac
    done
    local options='-h --help --version -H --host --id --timeout -o --output'
    case $command in
        '') options+=' get put watch wait record replay convert plot stats info doctor completion' ;;
        put) options+=' --echo --hold' ;;
        watch) options+=' -n --count --for --changes --max-rate --time' ;;
        wait) options+=' --within --hold' ;;
        record) options+=' -w --write --proxy --listen --to --raw --for --rotate --keep --sync' ;;
        doctor) options+=' --publish' ;;
        replay)
            options+=' --as --rate --loop --start --for --skip-gaps --only --rename --listen --port --patience --check'
            options+=' --tolerance --window --rules --bless'
            if [[ $word != -* ]]; then
                mapfile -t COMPREPLY < <(compgen -A file -- "$word")
                return
            fi
            ;;
        convert | plot | stats)
            [ "$command" != convert ] || options+=' --to --file'
            [ "$command" != plot ] || options+=' --file'
            if [[ $word != -* ]]; then
                mapfile -t COMPREPLY < <(compgen -A file -- "$word")
                return
            fi
            ;;
        completion) options+=' bash zsh fish' ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -F _csx csx
