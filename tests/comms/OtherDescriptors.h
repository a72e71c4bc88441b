#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace com_tesk::test {

/// Two connected sockets of the application. The system gives them the lowest free numbers: those of descriptors that
/// were just closed. In each direction one character is in transit, so that a stray write or read shows.
class OtherDescriptors {
  public:
    OtherDescriptors() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, descriptors) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        send(descriptors[0], "0", 1, MSG_NOSIGNAL);
        send(descriptors[1], "1", 1, MSG_NOSIGNAL);
    }
    OtherDescriptors(const OtherDescriptors&) = delete;
    OtherDescriptors& operator=(const OtherDescriptors&) = delete;
    ~OtherDescriptors() {
        ::close(descriptors[0]);
        ::close(descriptors[1]);
    }

    bool hasNumber(int descriptor) const { return descriptor == descriptors[0] || descriptor == descriptors[1]; }

    /// Reads all. Returns "1 0" when no other thread has read, written or closed here.
    std::string contents() const { return contentsOf(descriptors[0]) + " " + contentsOf(descriptors[1]); }

  private:
    static std::string contentsOf(int descriptor) {
        char buffer[256];
        const ssize_t count = recv(descriptor, buffer, sizeof buffer, MSG_DONTWAIT);
        if (count < 0) {
            return errno == EAGAIN ? "nothing" : "error " + std::to_string(errno);
        }
        return {buffer, static_cast<std::size_t>(count)};
    }

    int descriptors[2] = {-1, -1};
};

}  // namespace com_tesk::test
