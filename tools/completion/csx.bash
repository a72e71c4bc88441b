# Completion of csx's command line in bash.

_csx() {
    local word=${COMP_WORDS[COMP_CWORD]} command='' i
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        -o | --output)
            mapfile -t COMPREPLY < <(compgen -W 'text json csv' -- "$word")
            return
            ;;
        --time)
            mapfile -t COMPREPLY < <(compgen -W 'abs rel delta none' -- "$word")
            return
            ;;
        -H | --host)
            mapfile -t COMPREPLY < <(compgen -A hostname -- "$word")
            return
            ;;
        --id | --timeout | -n | --count | --for | --max-rate | --within | --echo | --publish)
            return # The user types numbers, times and names.
            ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            get | put | watch | wait | info | doctor | completion) command=${COMP_WORDS[i]} ;;
        esac
    done
    local options='-h --help --version -H --host --id --timeout -o --output'
    case $command in
        '') options+=' get put watch wait info doctor completion' ;;
        put) options+=' --echo --hold' ;;
        watch) options+=' -n --count --for --changes --max-rate --time' ;;
        wait) options+=' --within --hold' ;;
        doctor) options+=' --publish' ;;
        completion) options+=' bash zsh fish' ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -F _csx csx
