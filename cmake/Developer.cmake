# Options of developers and CI: warnings as errors, sanitizers, coverage. All are off by default. They are private to the
# project's own targets, so they never reach a consumer.

option(CSCLIENT_WERROR "Full warnings, as errors" OFF)
# Saves two fifths of the work of compiling all tests, and costs more when one file has changed. The preset `debug` does not use
# it, so that every file is also compiled by itself while one works on it.
option(CSCLIENT_UNITY "Compile several files of the tests and of the host as one" OFF)
option(CSCLIENT_COVERAGE "Instrument for line coverage" OFF)
set(CSCLIENT_SANITIZE "" CACHE STRING "Sanitizers for every target, for example address,undefined or thread")

# Sanitizers and coverage change the ABI of the code that they instrument, so they apply to the whole build, tests included.
if(CSCLIENT_SANITIZE)
    add_compile_options(-fsanitize=${CSCLIENT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${CSCLIENT_SANITIZE})
endif()
if(CSCLIENT_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
if(CSCLIENT_BUILD_FUZZERS)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR
            "CSCLIENT_BUILD_FUZZERS needs Clang, because libFuzzer is part of it. This build's compiler is "
            "${CMAKE_CXX_COMPILER_ID}. Use the preset: cmake --preset fuzz, or scripts/fuzz. A build with "
            "CSCLIENT_BUILD_TESTS replays the corpora with any compiler.")
    endif()
    if(CSCLIENT_BUILD_TESTS)
        message(FATAL_ERROR "CSCLIENT_BUILD_FUZZERS and CSCLIENT_BUILD_TESTS exclude each other: a fuzz target is "
            "either a libFuzzer program or a test.")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

function(csclient_unity target)
    if(CSCLIENT_UNITY)
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
    endif()
endfunction()

function(csclient_developer_flags target)
    if(CSCLIENT_WERROR)
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
            $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
    endif()
endfunction()
