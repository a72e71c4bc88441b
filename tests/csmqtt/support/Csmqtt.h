#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "host/LoopbackHost.h"
#include "tests/csmqtt/support/Subscriber.h"
#include "tests/csmqtt/support/TestBroker.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/OwnAddress.h"

/// Tests of csmqtt as a process, with a broker and a host of the test.
namespace com_tesk::mqtt_test {

using namespace std::chrono_literals;
using test::kWaitBound;

/// A running csmqtt. It is killed at the end of the test.
class Csmqtt : public test::ChildProcess {
  public:
    explicit Csmqtt(const std::vector<std::string>& arguments) : ChildProcess(setup(), arguments) {}
    static Csmqtt withConfig(const std::string& path) { return Csmqtt({"--config", path}); }

    /// Ends it as the service manager does, and expects the exit code 0.
    void expectCleanEnd() {
        signal(SIGTERM);
        EXPECT_EQ(exitCode(), 0) << errText();
    }

  private:
    static Setup setup() {
        Setup result;
        result.path = CSMQTT_PATH;
        result.ownName = "csmqtt";
        return result;
    }
};

/// What most tests need: files, a host on a port that stays the same, and the text of a configuration.
class BridgeTest : public testing::Test {
  protected:
    /// Returns the path of a configuration file with these lines after host, broker and base.
    std::string config(const std::string& broker, const std::string& lines, const std::string& name = "csmqtt.yaml") {
        return files.write(name, "host: " + test::ownAddress() + ':' + std::to_string(hostPort) + "\nbroker: " +
                                     broker + "\nbase: b\nstatistics: 200ms\nheartbeat: 200ms\n" + lines);
    }
    LoopbackHost::Options hostOptions() const {
        LoopbackHost::Options options;
        options.listenAddress = test::ownAddress();
        options.port = hostPort;
        return options;
    }

    const TemporaryDirectory files;
    const std::uint16_t hostPort = unusedPort();
};

}  // namespace com_tesk::mqtt_test
