#include "tests/support/Emulator.h"

#include <spawn.h>
#include <unistd.h>

#include <sstream>
#include <system_error>

namespace com_tesk::test {

bool isEmulated() {
    return CSCLIENT_EMULATOR[0] != '\0';
}

pid_t startProgram(const std::string& path, const std::string& ownName, const std::vector<std::string>& arguments,
                   int standardOutput, int standardError) {
    std::vector<std::string> words;
    std::istringstream emulator(CSCLIENT_EMULATOR);
    for (std::string word; emulator >> word;) {
        words.push_back(word);
    }
    const std::string file = words.empty() ? path : words.front();
    if (!words.empty()) {
        words.insert(words.end(), {"-0", ownName, path});
    } else {
        words.push_back(ownName);
    }
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, standardOutput, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, standardError, STDERR_FILENO);
    pid_t process = -1;
    const int error = posix_spawnp(&process, file.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), file);
    }
    return process;
}

}  // namespace com_tesk::test
