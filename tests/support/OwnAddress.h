#pragma once

#include <unistd.h>

#include <string>

namespace com_tesk::test {

/// Returns an address of 127.0.0.0/8 that belongs to this process alone. Programs with a fixed port can then run side
/// by side. It is never 127.0.x.x, where other tests listen.
inline std::string ownAddress() {
    const auto pid = static_cast<unsigned int>(getpid());
    return "127." + std::to_string(1 + (pid >> 16U & 0x7FU)) + "." + std::to_string(pid >> 8U & 0xFFU) + "." +
           std::to_string(pid & 0xFFU);
}

}  // namespace com_tesk::test
