#compdef csmqtt
# Completion of csmqtt's command line in zsh.

_arguments '(- *)'{-h,--help}'[print the help]' \
    '(- *)--version[print the version]' \
    '--config[configuration file]:file:_files' \
    '--check[print what would be done, and end]' \
    '--metrics[serve metrics at this address]:address:(127.0.0.1\:9633 0.0.0.0\:9633)'
