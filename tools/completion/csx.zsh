#compdef csx
# Completion of csx's command line in zsh.

_csx() {
    local -a common commands
    common=(
        '(- *)'{-h,--help}'[print the help]'
        '(- *)--version[print the version]'
        {-H,--host}'[host and port]:host:_hosts'
        '--id[simulator id of this client]:number:'
        '--timeout[time for connecting and for answers]:time:'
        {-o,--output}'[format of the output]:format:(text json csv)'
    )
    commands=(
        'get:print the value of each name once'
        'put:publish values'
        'watch:print values as they arrive'
        'wait:end when all conditions hold'
        'info:print what is known about the host'
        'doctor:check step by step what can be wrong'
        'completion:print the completion script of a shell'
    )
    local curcontext=$curcontext state line
    _arguments -C $common '1:command:->command' '*::argument:->argument'
    case $state in
        command)
            _describe command commands
            ;;
        argument)
            case $line[1] in
                get) _arguments $common '*:name:' ;;
                put) _arguments $common '--echo[wait until the values come back]:time:' \
                    '--hold[stay connected until SIGINT]' '*:name=value:' ;;
                watch) _arguments $common {-n,--count}'[end after this many lines]:number:' \
                    '--for[end after this time]:time:' '--changes[leave out equal values]' \
                    '--max-rate[lines a second for each name]:number:' \
                    '--time[style of the time]:style:(abs rel delta none)' '*:name:' ;;
                wait) _arguments $common '--within[give up after this time]:time:' \
                    '--hold[time for which the conditions must hold]:time:' '*:condition:' ;;
                info) _arguments $common ;;
                doctor) _arguments $common '--publish[name to publish again]:name:' '*:name:' ;;
                completion) _arguments $common '1:shell:(bash zsh fish)' ;;
            esac
            ;;
    esac
}

if [ "$funcstack[1]" = _csx ]; then
    _csx "$@"
else
    compdef _csx csx
fi
