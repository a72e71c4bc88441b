#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "tests/support/OwnAddress.h"

namespace com_tesk::mqtt_test {

/// A directory for the files of one test, removed at its end.
class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    /// Returns the path of a file in it.
    std::string path(const std::string& name) const { return directory + '/' + name; }
    /// Writes a file that only this user can read, and returns its path.
    std::string write(const std::string& name, const std::string& text) const;
    /// Runs a command in the directory. Returns whether it succeeded.
    bool run(const std::string& command) const;

  private:
    std::string directory;
};

/// A broker of this machine in a separate process, on an address of the test, without persistence. It is killed at the end.
class TestBroker {
  public:
    enum class Disk : std::uint8_t {
        FREE,
        FULL,  ///< The system refuses every byte that the broker writes to a file.
    };

    /// A broker drops messages to subscribers that are slower than the values, and the emulator can make one so. These
    /// tests are about the bridge.
    static constexpr const char* kOpenAndUnlimited = "allow_anonymous true\nmax_queued_messages 0\n";

    /// @param lines  further lines of its configuration, after the listener.
    explicit TestBroker(std::string lines = kOpenAndUnlimited, Disk ownDisk = Disk::FREE);
    ~TestBroker();
    TestBroker(const TestBroker&) = delete;
    TestBroker& operator=(const TestBroker&) = delete;

    std::uint16_t port() const { return ownPort; }
    std::string address() const { return test::ownAddress() + ':' + std::to_string(ownPort); }

    /// Starts it, and waits until it listens. The constructor does this.
    void start();
    /// Ends it at once.
    void kill();
    void restart();
    /// Lets it hang: it neither reads nor writes, but its system still accepts connections.
    void hang() const;
    void resume() const;

  private:
    const TemporaryDirectory files;
    const std::string settings;
    const Disk disk;
    std::uint16_t ownPort = 0;
    pid_t process = -1;
};

/// Returns a port of the test's own address on which no program listens now.
std::uint16_t unusedPort();

}  // namespace com_tesk::mqtt_test
