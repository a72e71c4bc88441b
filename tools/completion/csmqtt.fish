# Completion of csmqtt's command line in fish.

complete -c csmqtt -f
complete -c csmqtt -s h -l help -d 'print the help'
complete -c csmqtt -l version -d 'print the version'
complete -c csmqtt -l config -r -F -d 'configuration file'
complete -c csmqtt -l check -d 'print what would be done, and end'
complete -c csmqtt -l metrics -x -a '127.0.0.1:9633 0.0.0.0:9633' -d 'serve metrics at this address'
