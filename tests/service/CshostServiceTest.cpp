#include <gmock/gmock.h>

#include <csignal>

#include "tests/service/NotifySocket.h"
#include "tests/support/ChildProcess.h"

namespace com_tesk::service_test {
namespace {

using test::ChildProcess;

/// Starts cshost with these variables of the environment.
ChildProcess::Setup cshost(const std::vector<std::string>& environment) {
    ChildProcess::Setup setup;
    setup.path = CSHOST_PATH;
    setup.environment = environment;
    return setup;
}

TEST(CshostService, IsReadyOnceItListensAndSaysWhere) {
    const NotifySocket manager;
    ChildProcess host(cshost({"NOTIFY_SOCKET=" + manager.address()}), {"--port", "0"});
    const std::string line = host.lineWith("host listening on ");
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=" + line.substr(line.find("listening")));
    EXPECT_TRUE(manager.isEmpty()) << "there is no watchdog";
    host.signal(SIGTERM);
    EXPECT_EQ(manager.next(), "STOPPING=1");
    EXPECT_EQ(host.exitCode(), 0);
    EXPECT_EQ(host.errText(), "");
}

TEST(CshostService, FeedsTheWatchdogUntilItStops) {
    const NotifySocket manager;
    const ChildProcess host(cshost({"NOTIFY_SOCKET=" + manager.address(), "WATCHDOG_USEC=100000"}),
                            {"--port", "0", "--quiet"});
    EXPECT_THAT(manager.next(), testing::StartsWith("READY=1"));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(manager.next(), "WATCHDOG=1");
    }
    host.signal(SIGTERM);
    std::string message;
    do {
        message = manager.next();
    } while (message == "WATCHDOG=1");
    EXPECT_EQ(message, "STOPPING=1");
}

TEST(CshostService, IsNotReadyWhenItCannotListen) {
    const NotifySocket manager;
    ChildProcess host(cshost({"NOTIFY_SOCKET=" + manager.address()}), {"--listen", "192.0.2.1"});
    EXPECT_EQ(host.exitCode(), 1);
    EXPECT_TRUE(manager.isEmpty());
}

TEST(CshostService, ServesWhenTheManagerCannotBeReached) {
    ChildProcess host(cshost({"NOTIFY_SOCKET=nowhere"}), {"--port", "0"});
    EXPECT_NE(host.lineWith("host listening on "), "");
    EXPECT_TRUE(host.waitForErr("cshost: NOTIFY_SOCKET is no address of a socket: nowhere\n"));
    host.signal(SIGTERM);
    EXPECT_EQ(host.exitCode(), 0);
}

}  // namespace
}  // namespace com_tesk::service_test
