# Options of developers and CI: warnings as errors, sanitizers, coverage. All are off by default. They are private to the
# project's own targets, so they never reach a consumer.

option(CSCLIENT_WERROR "Full warnings, as errors" OFF)
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

function(csclient_developer_flags target)
    if(CSCLIENT_WERROR)
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
            $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
    endif()
endfunction()
