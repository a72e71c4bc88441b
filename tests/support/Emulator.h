#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace com_tesk::test {

/// True when the tests are built for another machine and run under an emulator. The process is then the emulator's: the
/// system counts the emulator's threads, descriptors and memory too.
bool isEmulated();

/// Starts a program of this build as a process. When the tests are built for another machine, it starts the emulator
/// with the program, because the system would refuse the program.
/// @param ownName  the name that the program gets as its argument 0.
/// @throws std::system_error
pid_t startProgram(const std::string& path, const std::string& ownName, const std::vector<std::string>& arguments,
                   int standardOutput, int standardError);

}  // namespace com_tesk::test
