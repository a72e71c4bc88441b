#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "host/LoopbackHost.h"
#include "tests/host/EventLog.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::host_test {

using test::Bytes;
using test::hex;
using test::hexField;
using test::hexText;

constexpr std::chrono::milliseconds kBound = test::ScriptedHost::kBound;

// Messages as hex texts, with which tests compose requests and compare replies. None of these functions uses the host.

/// Returns a data frame around a body.
std::string frame(const std::string& body);

/// Returns the body of a request: a sub-header with the right length and this code, then `rest`.
std::string requestBody(const std::string& code, const std::string& rest);
std::string request(const std::string& code, const std::string& rest);

// Requests of simulator id 5.
std::string versionRequest();
std::string subscribe(const std::string& name, bool isInteger = false);
std::string registerOutput(const std::string& name, bool isInteger = false);
/// Publishes one record, given as its three words.
std::string publish(const std::string& idFlagValue);
std::string unsubscribe(const std::string& id);
std::string unregister(const std::string& id);

// Messages of the host to a client of simulator id 5, with one record each.
std::string inputReply(const std::string& id, const std::string& flagAndValue, const std::string& name);
std::string outputReply(const std::string& id, const std::string& flag, const std::string& name);
std::string update(const std::string& idFlagValue);
std::string versionReply(const std::string& simulatorWord, const std::string& versionText,
                         const std::string& protocolVersion);

/// A client that the test controls byte by byte.
class Client : public test::ScriptedHost::Peer {
  public:
    /// Throws std::system_error when it cannot connect.
    /// @param receiveBuffer  bytes for SO_RCVBUF; 0 leaves the system's choice.
    explicit Client(std::uint16_t port, const std::string& address = "127.0.0.1", int receiveBuffer = 0);

    /// Sends, and returns the next frame.
    std::string ask(const std::string& message);

    enum class End { CLOSED, RESET, STILL_OPEN };
    /// Discards received bytes until the connection ends.
    End end();

  private:
    explicit Client(int connected) : Peer(connected), descriptor(connected) {}

    int descriptor;
};

/// Has a host, started on first use with `options`, and a log of its events.
class HostTest : public testing::Test {
  protected:
    LoopbackHost& host();
    Client connect() { return Client(host().port()); }

    /// True when the host answers a version request of this client next.
    static bool isServed(Client& client) { return client.ask(versionRequest()).substr(0, 11) == "00 00 00 B8"; }

    HostOptions options;
    EventLog log;

  private:
    std::unique_ptr<LoopbackHost> startedHost;
};

}  // namespace com_tesk::host_test
