#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace com_tesk::test {

/// Two sockets of the application that are connected to each other. The system gives them the lowest numbers that are
/// free: those of descriptors that have just been closed. In each direction one character is on its way, so both a
/// stray write and a stray read show.
class ForeignPair {
  public:
    ForeignPair() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, descriptors) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        send(descriptors[0], "0", 1, MSG_NOSIGNAL);
        send(descriptors[1], "1", 1, MSG_NOSIGNAL);
    }
    ForeignPair(const ForeignPair&) = delete;
    ForeignPair& operator=(const ForeignPair&) = delete;
    ~ForeignPair() {
        ::close(descriptors[0]);
        ::close(descriptors[1]);
    }

    bool hasNumber(int descriptor) const { return descriptor == descriptors[0] || descriptor == descriptors[1]; }

    /// Takes out what there is to be read.
    /// @return "1 0" when nobody else has read, written or closed here.
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
