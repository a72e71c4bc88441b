#include "tests/support/Emulator.h"

#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>
#include <sstream>
#include <system_error>

namespace com_tesk::test {

namespace {

/// Returns pointers to the texts, and a null pointer after them.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// Returns the words of the emulator; none without one.
std::vector<std::string> emulatorWords() {
    std::istringstream emulator(CSCLIENT_EMULATOR);
    std::vector<std::string> words;
    for (std::string word; emulator >> word;) {
        words.push_back(word);
    }
    return words;
}

}  // namespace

bool isEmulated() {
    return CSCLIENT_EMULATOR[0] != '\0';
}

std::vector<std::string> commandOf(const std::string& path) {
    std::vector<std::string> words = emulatorWords();
    words.push_back(path);
    return words;
}

pid_t startProgram(const std::string& path, const std::string& ownName, const std::vector<std::string>& arguments,
                   int standardOutput, int standardError, int standardInput,
                   const std::vector<std::string>& environment) {
    std::vector<std::string> words = emulatorWords();
    const std::string file = words.empty() ? path : words.front();
    if (!words.empty()) {
        words.insert(words.end(), {"-0", ownName, path});
    } else {
        words.push_back(ownName);
    }
    words.insert(words.end(), arguments.begin(), arguments.end());
    // Of two variables with one name, the first counts. An emulator would pass on the last.
    std::vector<std::string> variables;
    std::set<std::string> names;
    const auto add = [&](const std::string& variable) {
        if (names.insert(variable.substr(0, variable.find('='))).second) {
            variables.push_back(variable);
        }
    };
    std::for_each(environment.begin(), environment.end(), add);
    for (char** variable = environ; *variable != nullptr; ++variable) {
        add(*variable);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, standardOutput, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, standardError, STDERR_FILENO);
    if (standardInput >= 0) {
        posix_spawn_file_actions_adddup2(&actions, standardInput, STDIN_FILENO);
    }
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int number : {SIGINT, SIGTERM, SIGPIPE}) {
        sigaddset(&defaults, number);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t process = -1;
    const int error = posix_spawnp(&process, file.c_str(), &actions, &attributes, pointersTo(words).data(),
                                   pointersTo(variables).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), file);
    }
    return process;
}

}  // namespace com_tesk::test
