#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace com_tesk::test {

/// True when the tests are built for another machine and run under an emulator. The process is then the emulator's: the
/// system counts the emulator's threads, descriptors and memory too.
bool isEmulated();

/// Returns the command with which another program starts a program of this build: the path, after the words of the
/// emulator.
std::vector<std::string> commandOf(const std::string& path);

/// Starts a program of this build as a process. When the tests are built for another machine, it starts the emulator
/// with the program, because the system would refuse the program.
/// Signals have their default effect in it, whatever the shell of the test has set.
/// @param ownName        the name that the program gets as its argument 0.
/// @param standardInput  -1 for that of the test.
/// @param environment    variables of the program, such as "NAME=VALUE", besides those of the test.
/// @throws std::system_error
pid_t startProgram(const std::string& path, const std::string& ownName, const std::vector<std::string>& arguments,
                   int standardOutput, int standardError, int standardInput = -1,
                   const std::vector<std::string>& environment = {});

}  // namespace com_tesk::test
