#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace com_tesk {
namespace test {

/// Whether the tests are built for another machine and run under an emulator. What the system tells of the process is then
/// told of the emulator: its threads, descriptors and memory are counted in.
bool isEmulated();

/// Starts a program of this build as a process, through the emulator that runs the tests when they are built for another
/// machine: the system would refuse such a program.
/// @param ownName  what the program is told to be called.
/// @throws std::system_error
pid_t startProgram(const std::string& path, const std::string& ownName, const std::vector<std::string>& arguments,
                   int standardOutput, int standardError);

}  // namespace test
}  // namespace com_tesk
