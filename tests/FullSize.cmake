# Read by CTest right after the tests of a program whose tests have a long form. The time limit is then a guard against
# hanging only. Decided when the tests run, not when they are built: both sizes are in the same program.
if(DEFINED ENV{CSCLIENT_FULL_SIZE})
    foreach(test IN LISTS csclient_discovered_tests)
        set_tests_properties("${test}" PROPERTIES TIMEOUT 14400)
    endforeach()
endif()
