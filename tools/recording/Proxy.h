#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/recording/ProxyConnection.h"
#include "tools/recording/Recorder.h"

namespace com_tesk::recording {

/// Passes the bytes of any number of clients on to a host and back, unchanged, and records them. Runs on one thread.
class Proxy {
  public:
    /// An IPv4 address.
    struct Address {
        std::string host;  ///< A dotted address or a name; empty for all addresses of this machine.
        std::uint16_t port = 0;
    };

    /// Listens.
    /// @param sayToUser  receives lines for the user.
    /// @throws std::system_error   the address cannot be used.
    /// @throws std::runtime_error  a name has no IPv4 address; the text says so.
    Proxy(const Address& listenAt, const Address& hostAt, RecordingFile::Say sayToUser);
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    /// Returns where it listens: "0.0.0.0:55581".
    std::string place() const;

    /// Passes bytes on until `stopDescriptor` is readable or the time has come. The connections then end.
    void run(Recorder& recorder, int stopDescriptor, std::chrono::steady_clock::time_point end);

  private:
    void accept(Recorder& recorder);
    void waitForEvents(int stopDescriptor, std::chrono::steady_clock::time_point end);

    const RecordingFile::Say say;
    sockaddr_in host{};
    int listener = -1;
    std::uint32_t lastNumber = 0;
    std::chrono::steady_clock::time_point acceptAfter{};
    std::vector<std::unique_ptr<ProxyConnection>> connections;
    std::vector<pollfd> waiting;
};

/// Returns the address as text: "127.0.0.1:55580".
std::string textOf(const sockaddr_in& address);

}  // namespace com_tesk::recording
