# Completion of csmqtt's command line in bash.

_csmqtt() {
    local word=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --config)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        --metrics)
            mapfile -t COMPREPLY < <(compgen -W '127.0.0.1:9633 0.0.0.0:9633' -- "$word")
            return
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W '-h --help --version --config --check --metrics' -- "$word")
}
complete -F _csmqtt csmqtt
