#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

namespace com_tesk::service_test {

/// A variable of the environment, until the end of the test.
class Variable {
  public:
    Variable(std::string variableName, const std::string& value) : name(std::move(variableName)) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    ~Variable() { unsetenv(name.c_str()); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    const std::string name;
};

/// The service manager's end of the notifications: a datagram socket.
class NotifySocket {
  public:
    enum class Kind { PATH, ABSTRACT };
    static constexpr std::chrono::seconds kBound{40};

    explicit NotifySocket(Kind kind = Kind::PATH) {
        std::string name = (std::filesystem::temp_directory_path() / "notify-XXXXXX").string();
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        place = (kind == Kind::PATH ? folder : '@' + folder) + "/socket";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, place.data(), place.size());
        socklen_t size = sizeof address;
        if (kind == Kind::ABSTRACT) {
            address.sun_path[0] = '\0';
            size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + place.size());
        }
        descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size), 0) << place;
    }
    ~NotifySocket() {
        close(descriptor);
        std::filesystem::remove_all(folder);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    /// Returns the value for `$NOTIFY_SOCKET`.
    const std::string& address() const { return place; }

    /// Returns the next datagram; "" when none arrives within the bound.
    std::string next(std::chrono::milliseconds bound = kBound) const {
        pollfd waiting{descriptor, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(bound.count())) != 1) {
            return {};
        }
        std::array<char, 4096> bytes{};
        const ssize_t size = recv(descriptor, bytes.data(), bytes.size(), 0);
        return {bytes.data(), static_cast<std::size_t>(size < 0 ? 0 : size)};
    }

    /// True when no datagram waits.
    bool isEmpty() const { return next(std::chrono::milliseconds(0)).empty(); }

  private:
    std::string folder;
    std::string place;
    int descriptor = -1;
};

}  // namespace com_tesk::service_test
