# CTest reads this file right after the tests of a program whose tests have a long form. In the long form, the time limit only
# stops tests that hang. It is chosen when the tests run, because both forms are in the same program.
if(DEFINED ENV{CSCLIENT_FULL_SIZE})
    foreach(test IN LISTS csclient_discovered_tests)
        set_tests_properties("${test}" PROPERTIES TIMEOUT 14400)
    endforeach()
endif()
