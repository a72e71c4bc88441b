#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/OwnAddress.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {

/// The port that the publisher connects to.
constexpr unsigned int kPublisherPort = 55580;

// Bodies of the publisher's requests with simulator id 1.
std::string registrationOf(const std::string& name);
/// @param valueHex  the hex text of the value's 32 bits.
std::string publicationOf(unsigned int id, const std::string& valueHex);
std::string unregistrationOf(unsigned int id);

/// Returns the frame that confirms one output.
std::string confirmationOf(unsigned int id, const std::string& name);
std::string versionReply();

/// Runs the publisher against a host that the test controls, at an address of this process alone.
class PublisherTest : public testing::Test {
  protected:
    using Arguments = std::vector<std::string>;

    PublisherTest() { listen(); }
    ~PublisherTest() override { stopListening(); }

    /// Runs the publisher as it is installed.
    static ChildProcess runAsBuilt(const Arguments& arguments, const std::string& ownName = "cspublish") {
        return {{CSPUBLISH_PATH, ownName, std::nullopt}, arguments};
    }
    /// Runs the publisher with a slow connection, which makes every byte and line predictable; see SlowConnect.cpp.
    static ChildProcess run(const Arguments& arguments, std::optional<std::size_t> outputSpace = std::nullopt) {
        return {{SLOW_CSPUBLISH_PATH, "cspublish", outputSpace}, arguments};
    }

    void listen();
    /// Makes the system refuse connections from now on.
    void stopListening();

    /// Accepts the next connection as `peer` and expects the version request. Throws when no connection arrives.
    void accept(const std::string& simulatorId = "00 01");
    void expectRegistration(const std::string& name) { EXPECT_EQ(peer->receiveBody(), registrationOf(name)); }
    /// Expects a registration, confirms it, and expects the publication of its value.
    void expectValue(unsigned int id, const std::string& name, const std::string& valueHex);

    std::unique_ptr<ScriptedHost::Peer> peer;

  private:
    int listener = -1;
};

}  // namespace com_tesk::test
