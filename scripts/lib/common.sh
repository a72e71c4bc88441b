# Functions that several scripts share. A script sources this file with the project's directory as the working directory.
# shellcheck shell=bash

# The Debian packages that a build with tests needs.
# shellcheck disable=SC2034 # Used by the scripts that source this file.
test_packages=(g++ cmake ninja-build libasio-dev libcli11-dev libgtest-dev libgmock-dev libyaml-cpp-dev nlohmann-json3-dev
    python3-yaml gnuplot-nox tshark libmosquitto-dev mosquitto mosquitto-clients libcpp-httplib-dev stunnel4 openssl systemd)

# The libraries that a build for another machine needs of that machine. The last ones are those that the first ones need in turn.
# shellcheck disable=SC2034
foreign_packages=(libyaml-cpp-dev libmosquitto-dev libmosquitto1 libcpp-httplib-dev libcpp-httplib0.11
    libssl-dev libssl3 zlib1g-dev zlib1g libbrotli-dev libbrotli1)

# use_ccache: installs ccache, and has every later build use it. Results of the compilers are then kept outside the project, so that
# the next clone on this machine compiles only what differs.
use_ccache() {
    scripts/packages ccache
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
    # Precompiled headers need these. No file of the project uses the macros for date and time.
    export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
}

# syntax ARGUMENTS: prints the arguments that the script takes, and ends it with 1.
syntax() {
    echo "Syntax: $0 $1" >&2
    exit 1
}

# choose BEFORE CHOICES ARGUMENT...: sets `chosen` to the arguments, or to all choices when there are none. An invalid argument ends
# the script. BEFORE names the arguments that precede the choices, for the message.
choose() {
    local before=$1 choices=$2 one
    shift 2
    chosen=("$@")
    [ $# -gt 0 ] || read -ra chosen <<<"$choices"
    for one in "${chosen[@]}"; do
        [[ " $choices " == *" $one "* ]] || syntax "${before}[${choices// /] [}]"
    done
}

# build_suite NAME PRESET...: builds the presets. build/NAME/ then contains the tests of all presets, so that one CTest run gives
# one summary.
build_suite() {
    local suite=build/$1 preset
    shift
    use_ccache
    mkdir -p "$suite"
    : >"$suite/CTestTestfile.cmake"
    for preset in "$@"; do
        cmake --preset "$preset"
        cmake --build --preset "$preset"
        echo "subdirs(\"$PWD/build/$preset\")" >>"$suite/CTestTestfile.cmake"
    done
}

# run_suite NAME OPTION...: runs the tests in build/NAME/, with these options of CTest. Each core runs many tests in parallel,
# because most tests wait for the system's whole-second sleeps.
run_suite() {
    local suite=build/$1
    shift
    ctest --test-dir "$suite" --output-on-failure --no-tests=error --parallel $((8 * $(nproc))) "$@"
}

# await_fewer_jobs COUNT: waits until fewer than COUNT jobs of this shell run. Fails when a job that it waits for fails.
await_fewer_jobs() {
    while [ "$(jobs -rp | wc -l)" -ge "$1" ]; do
        wait -n
    done
}
