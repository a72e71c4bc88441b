#include "tools/recording_tools/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace com_tesk::recording {

bool isPipeOrDevice(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

OutputFile::OutputFile(std::string path) : name(std::move(path)) {
    constexpr mode_t kForEveryone = 0666;  // The system takes away what the user's mask says.
    if (isPipeOrDevice(name)) {
        file = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    } else {
        partialName = name + ".part" + std::to_string(getpid());
        file = open(partialName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kForEveryone);
    }
    if (file < 0) {
        partialName.clear();
        fail();
    }
}

OutputFile::~OutputFile() {
    if (file >= 0) {
        close(file);
    }
    if (!partialName.empty()) {
        unlink(partialName.c_str());
    }
}

void OutputFile::fail() const {
    throw std::system_error(errno, std::generic_category(), "cannot write " + name);
}

void OutputFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            fail();
        }
    }
}

void OutputFile::complete() {
    if (close(std::exchange(file, -1)) != 0) {
        fail();
    }
    if (!partialName.empty()) {
        if (std::rename(partialName.c_str(), name.c_str()) != 0) {
            fail();
        }
        partialName.clear();
    }
}

}  // namespace com_tesk::recording
