# What developers and CI add to a build: warnings as errors, sanitizers, coverage. Everything here is off
# unless asked for, private to this project's own targets, and never reaches a consumer.

option(CSCLIENT_WERROR "Full warnings, as errors" OFF)
option(CSCLIENT_COVERAGE "Instrument for line coverage" OFF)
set(CSCLIENT_SANITIZE "" CACHE STRING "Sanitizers for every target, for example address,undefined or thread")

# Sanitizers and coverage change the ABI of what they touch, so they apply to the whole build, tests included.
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
            "CSCLIENT_BUILD_FUZZERS needs Clang, which brings libFuzzer; this build's compiler is "
            "${CMAKE_CXX_COMPILER_ID}. Use the preset: cmake --preset fuzz, or scripts/fuzz. A build with "
            "CSCLIENT_BUILD_TESTS replays the corpora with any compiler.")
    endif()
    if(CSCLIENT_BUILD_TESTS)
        message(FATAL_ERROR "CSCLIENT_BUILD_FUZZERS and CSCLIENT_BUILD_TESTS exclude each other: a fuzz target is "
            "either a libFuzzer program or a test.")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

function(csclient_developer_flags target)
    if(CSCLIENT_WERROR)
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
            $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
    endif()
endfunction()
