#include "tools/service/Notifier.h"

#include <gmock/gmock.h>

#include <optional>

#include "tests/service/NotifySocket.h"

namespace com_tesk::service_test {
namespace {

using service::Notifier;
using std::chrono::microseconds;

TEST(Notifier, DoesNothingWithoutTheVariable) {
    unsetenv("NOTIFY_SOCKET");
    const Variable usec("WATCHDOG_USEC", "3000000");
    const Notifier notifier;
    EXPECT_FALSE(notifier.isActive());
    EXPECT_EQ(notifier.flaw(), "");
    EXPECT_TRUE(notifier.ready("ready"));
    EXPECT_TRUE(notifier.alive());
    EXPECT_TRUE(notifier.stopping());
    EXPECT_EQ(notifier.watchdogInterval(), std::nullopt);
}

TEST(Notifier, SendsEachMessageAsOneDatagram) {
    for (const auto kind : {NotifySocket::Kind::PATH, NotifySocket::Kind::ABSTRACT}) {
        const NotifySocket manager(kind);
        const Variable place("NOTIFY_SOCKET", manager.address());
        const Notifier notifier;
        EXPECT_TRUE(notifier.isActive());
        EXPECT_TRUE(notifier.ready("listening on port 1"));
        EXPECT_TRUE(notifier.status("host up"));
        EXPECT_TRUE(notifier.alive());
        EXPECT_TRUE(notifier.stopping());
        EXPECT_EQ(manager.next(), "READY=1\nSTATUS=listening on port 1");
        EXPECT_EQ(manager.next(), "STATUS=host up");
        EXPECT_EQ(manager.next(), "WATCHDOG=1");
        EXPECT_EQ(manager.next(), "STOPPING=1");
        EXPECT_TRUE(manager.isEmpty());
    }
}

TEST(Notifier, AStatusCannotAddALine) {
    const NotifySocket manager;
    const Variable place("NOTIFY_SOCKET", manager.address());
    const Notifier notifier;
    EXPECT_TRUE(notifier.status("a\nMAINPID=1\r\tb"));
    EXPECT_EQ(manager.next(), "STATUS=a MAINPID=1  b");
}

TEST(Notifier, NamesAnAddressThatIsNone) {
    for (const std::string& text : {std::string("relative"), std::string("/"), std::string("@"), std::string("vsock:2"),
                                    '/' + std::string(107, 'x'), '@' + std::string(108, 'x')}) {
        const Variable place("NOTIFY_SOCKET", text);
        const Notifier notifier;
        EXPECT_FALSE(notifier.isActive());
        EXPECT_THAT(notifier.flaw(), testing::HasSubstr("NOTIFY_SOCKET")) << text;
        EXPECT_FALSE(notifier.ready("")) << text;
    }
}

TEST(Notifier, TakesAddressesOfTheMaximumSize) {
    for (const std::string& text : {'/' + std::string(106, 'x'), '@' + std::string(107, 'x')}) {
        const Variable place("NOTIFY_SOCKET", text);
        const Notifier notifier;
        EXPECT_TRUE(notifier.isActive()) << notifier.flaw();
        EXPECT_FALSE(notifier.ready("")) << "no manager is there";
    }
}

TEST(Notifier, AManagerThatDoesNotReadBlocksForASecond) {
    const NotifySocket manager;
    const Variable place("NOTIFY_SOCKET", manager.address());
    const Notifier notifier;
    int sent = 0;
    while (sent < 100'000 && notifier.alive()) {
        ++sent;
    }
    EXPECT_LT(sent, 100'000) << "the queue of the socket has no end";
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
    EXPECT_TRUE(notifier.alive());
}

TEST(Notifier, ReadsTheIntervalOfTheWatchdog) {
    const NotifySocket manager;
    const Variable place("NOTIFY_SOCKET", manager.address());
    EXPECT_EQ(Notifier().watchdogInterval(), std::nullopt);
    const Variable usec("WATCHDOG_USEC", "3000000");
    EXPECT_EQ(Notifier().watchdogInterval(), microseconds(3'000'000));
    {
        const Variable own("WATCHDOG_PID", std::to_string(getpid()));
        EXPECT_EQ(Notifier().watchdogInterval(), microseconds(3'000'000));
    }
    const Variable other("WATCHDOG_PID", std::to_string(getpid() + 1));
    EXPECT_EQ(Notifier().watchdogInterval(), std::nullopt);
}

TEST(Notifier, IgnoresAnIntervalThatIsNoNumber) {
    const NotifySocket manager;
    const Variable place("NOTIFY_SOCKET", manager.address());
    for (const char* const text : {"", "0", "-1", "3s", " 3", "99999999999999999999"}) {
        const Variable usec("WATCHDOG_USEC", text);
        EXPECT_EQ(Notifier().watchdogInterval(), std::nullopt) << text;
    }
    const Variable usec("WATCHDOG_USEC", "3000000");
    const Variable process("WATCHDOG_PID", "self");
    EXPECT_EQ(Notifier().watchdogInterval(), std::nullopt);
}

}  // namespace
}  // namespace com_tesk::service_test
