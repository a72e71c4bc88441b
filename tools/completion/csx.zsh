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
        'record:record values, or the connections of programs'
        'info:print what is known about the host'
        'doctor:check step by step what can be wrong'
        'replay:play a recording'
        'convert:write a recording in another format'
        'plot:draw values of a recording'
        'stats:print rates, gaps and extremes'
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
                record) _arguments $common {-w,--write}'[file of the recording]:file:_files' \
                    '--proxy[pass connections on to a host]' '--listen[where programs connect to]:address:' \
                    '--to[host of these programs]:host:_hosts' '--raw[also record the bytes]' \
                    '--for[end after this time]:time:' '--rotate[begin a new file after this]:size or time:' \
                    '--keep[files to keep]:number:' '--sync[store at least so often]:time:' '*:name:' ;;
                info) _arguments $common ;;
                doctor) _arguments $common '--publish[name to publish again]:name:' '*:name:' ;;
                replay) _arguments $common '--as[side to play]:side:(host client)' '--rate[so many times as fast]:number:' \
                    '--loop[begin again at the end]' '--start[time to begin at]:time:' \
                    '--for[end after this time]:time:' '--skip-gaps[shorten longer gaps]:time:' \
                    '--only[names to use]:name:' '--rename[another name]:name=name:' \
                    '--listen[address to listen on]:address:' '--port[port to listen on]:number:' \
                    '--patience[longest wait at the beginning]:time:' '--check[compare what the program publishes]' \
                    '--tolerance[permitted difference of values]:number:' '--window[permitted difference of times]:time:' \
                    '--rules[rules for single outputs]:file:_files' '--bless[write the new expectation]' \
                    '1:recording:_files' '*::program:_normal' ;;
                convert) _arguments '--to[format of the result]:format:(csv scenario pcap)' \
                    {-o,--file}'[file for the result]:file:_files' '1:recording:_files' ;;
                plot) _arguments {-o,--file}'[file for the picture]:file:_files' '1:recording:_files' '*:name:' ;;
                stats) _arguments $common '1:recording:_files' ;;
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
