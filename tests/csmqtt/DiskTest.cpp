// Full disks: that of the broker, and that of the bridge's log.

#include <filesystem>

#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/support/Emulator.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

namespace {

using FullDisk = BridgeTest;

bool hasContents(const std::string& path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    return !error && size > 0;
}

}  // namespace

TEST_F(FullDisk, OfTheBrokerStopsNoValue) {
    const auto settings = [this](const std::string& file) {
        return "allow_anonymous true\npersistence true\npersistence_location " + files.path("") +
               "\npersistence_file " + file + "\nautosave_on_changes true\nautosave_interval 1\n";
    };
    LoopbackHost host(hostOptions());
    TestBroker full(settings("full.db"), TestBroker::Disk::FULL);
    Subscriber subscriber(full.port());
    {
        Csmqtt csmqtt({"--config", config(full.address(), "to_mqtt: [{name: x, qos: 1}]\nfrom_mqtt: [z]\n")});
        for (int number = 1; number <= 20; ++number) {
            host.setValue("x", HostValue::real(static_cast<float>(number)));
            ASSERT_TRUE(subscriber.waitFor("b/v/x", std::to_string(number)));
        }
        subscriber.publish("b/set/z", "5");
        EXPECT_TRUE(host.waitForValue("z", HostValue::real(5), kWaitBound));
        csmqtt.expectCleanEnd();
    }
    EXPECT_FALSE(hasContents(files.path("full.db")));
    // With space, the same settings make a file. So the broker above has tried.
    TestBroker other(settings("other.db"));
    Subscriber(other.port()).publishNow("b/v/y", "1", true);
    EXPECT_TRUE(test::waitUntil([&] { return hasContents(files.path("other.db")); }));
}

TEST_F(FullDisk, OfTheLogStopsNoValue) {
    LoopbackHost host(hostOptions());
    host.setValue("x", HostValue::real(1));
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    std::string command;
    for (const std::string& word : test::commandOf(CSMQTT_PATH)) {
        command += word + ' ';
    }
    const std::string path = config(broker.address(), "to_mqtt: [x]\n");
    // The shell redirects its own streams first, so the program's error stream is the full disk.
    ASSERT_TRUE(files.run("{ timeout 60 " + command + "--config " + path + " 2>/dev/full & echo $! >pid; }"));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1"));
    broker.kill();
    broker.start();
    EXPECT_TRUE(Subscriber(broker.port()).waitFor("b/v/x", "1"));
    EXPECT_TRUE(files.run("kill $(cat pid)"));
    const Subscriber late(broker.port());
    EXPECT_TRUE(late.waitFor("b/$state", "offline"));
}

}  // namespace com_tesk::mqtt_test
