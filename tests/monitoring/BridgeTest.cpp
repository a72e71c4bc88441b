#include <gmock/gmock.h>

#include <list>
#include <set>

#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/monitoring/Exposition.h"
#include "tests/monitoring/HttpClient.h"
#include "tests/service/NotifySocket.h"

namespace com_tesk::monitoring_test {
namespace {

using mqtt_test::Csmqtt;
using mqtt_test::Subscriber;
using mqtt_test::TestBroker;
using namespace std::chrono_literals;

/// csmqtt with a broker and a host of the test.
class MonitoredBridge : public mqtt_test::BridgeTest {
  protected:
    static constexpr const char* kDescription = "homeassistant/device/csmqtt_b/config";

    /// Returns the port that the log names.
    static std::uint16_t metricsPortOf(Csmqtt& csmqtt) {
        EXPECT_TRUE(csmqtt.waitForErr("/metrics\n"));
        const std::string& log = csmqtt.errText();
        const std::size_t end = log.find("/metrics\n");
        return static_cast<std::uint16_t>(std::stoi(log.substr(log.rfind(':', end) + 1)));
    }

    /// Waits until the metrics have this text for a sample; "" when it is to be missing.
    static bool waitForSample(std::uint16_t port, const std::string& sample, const std::string& text) {
        return test::waitUntil([&] { return Exposition(bodyOf(get(port)))[sample].value_or("") == text; });
    }

    const TestBroker broker;
};

TEST_F(MonitoredBridge, IsDescribedToHomeAutomation) {
    const Subscriber subscriber(broker.port());
    const std::string lines = "discovery: homeassistant\n";
    {
        Csmqtt csmqtt = Csmqtt::withConfig(config(broker.address(), lines + "to_mqtt: [speed, altitude]\n"));
        ASSERT_TRUE(subscriber.waitForPart(kDescription, "v_altitude"));
        csmqtt.expectCleanEnd();
    }
    Csmqtt csmqtt = Csmqtt::withConfig(config(broker.address(), lines + "to_mqtt: [altitude]\n"));
    ASSERT_TRUE(test::waitUntil([&] {
        const auto all = subscriber.all(kDescription);
        return all.size() >= 4 && all.back().payload.find("v_speed") == std::string::npos;
    })) << "the value is not removed: "
        << subscriber.newest(kDescription);
    bool isRemoved = false;
    for (const auto& message : subscriber.all(kDescription)) {
        isRemoved = isRemoved || message.payload.find(R"("v_speed":{"platform":"sensor"})") != std::string::npos;
    }
    EXPECT_TRUE(isRemoved);
}

TEST_F(MonitoredBridge, IsDescribedAgainWhenHomeAutomationStarts) {
    Subscriber subscriber(broker.port());
    const Csmqtt csmqtt =
        Csmqtt::withConfig(config(broker.address(), "discovery: homeassistant\nto_mqtt: [altitude]\n"));
    ASSERT_TRUE(subscriber.waitForPart(kDescription, "v_altitude"));
    ASSERT_TRUE(subscriber.waitFor("b/$state", "online"));
    const std::size_t before = subscriber.all(kDescription).size();
    subscriber.publish("homeassistant/status", "online");
    EXPECT_TRUE(test::waitUntil([&] { return subscriber.all(kDescription).size() > before; }));
}

TEST_F(MonitoredBridge, ServesMetricsWhichDisappearWithTheHost) {
    auto host = std::make_unique<LoopbackHost>(hostOptions());
    host->setValue("altitude", HostValue::real(12.5F));
    Csmqtt csmqtt(
        {"--config", config(broker.address(), "to_mqtt: [altitude]\nfrom_mqtt: [lamp]\n"), "--metrics", "127.0.0.1:0"});
    const std::uint16_t port = metricsPortOf(csmqtt);
    EXPECT_TRUE(waitForSample(port, R"(csmqtt_value{name="altitude"})", "12.5"));
    EXPECT_TRUE(waitForSample(port, "csmqtt_broker_up", "1"));
    EXPECT_TRUE(waitForSample(port, "csmqtt_host_up", "1"));
    host.reset();
    EXPECT_TRUE(waitForSample(port, R"(csmqtt_value{name="altitude"})", ""));
    EXPECT_TRUE(waitForSample(port, "csmqtt_host_up", "0"));
    csmqtt.expectCleanEnd();
}

TEST_F(MonitoredBridge, WorksWhileAClientOfTheMetricsDoesNotRead) {
    LoopbackHost host(hostOptions());
    const Subscriber subscriber(broker.port());
    Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [altitude]\n"), "--metrics", "127.0.0.1:0"});
    const std::uint16_t port = metricsPortOf(csmqtt);
    std::list<HttpClient> clients;
    for (int i = 0; i < 12; ++i) {  // More than it serves at a time.
        clients.emplace_back(port);
        if (i % 2 == 0) {
            clients.back().send("GET /metrics HTTP/1.1\r\n");
        }
    }
    host.setValue("altitude", HostValue::real(2));
    EXPECT_TRUE(subscriber.waitFor("b/v/altitude", "2"));
    csmqtt.expectCleanEnd();
}

TEST_F(MonitoredBridge, AnAddressForMetricsThatIsInUseEndsIt) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(descriptor, 1), 0);
    socklen_t size = sizeof address;
    ASSERT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const std::string place = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [altitude]\n"), "--metrics", place});
    EXPECT_EQ(csmqtt.exitCode(), 2);
    EXPECT_EQ(csmqtt.errText(), "error: metrics: cannot listen on " + place + ": Address already in use\n");
    close(descriptor);
}

TEST_F(MonitoredBridge, NotifiesTheServiceManager) {
    const service_test::NotifySocket manager;
    const service_test::Variable place("NOTIFY_SOCKET", manager.address());
    const service_test::Variable limit("WATCHDOG_USEC", "400000");
    Csmqtt csmqtt = Csmqtt::withConfig(config(broker.address(), "to_mqtt: [altitude]\n"));
    EXPECT_THAT(manager.next(), testing::StartsWith("READY=1"));
    std::set<std::string> seen;
    while (seen.count("WATCHDOG=1") == 0 || seen.count("STATUS=host down, broker up") == 0) {
        const std::string message = manager.next();
        ASSERT_NE(message, "");
        seen.insert(message);
    }
    LoopbackHost host(hostOptions());
    while (seen.count("STATUS=host up, broker up") == 0) {
        const std::string message = manager.next();
        ASSERT_NE(message, "");
        seen.insert(message);
    }
    csmqtt.signal(SIGTERM);
    while (seen.count("STOPPING=1") == 0) {
        const std::string message = manager.next();
        ASSERT_NE(message, "");
        seen.insert(message);
    }
    EXPECT_EQ(csmqtt.exitCode(), 0);
}

}  // namespace
}  // namespace com_tesk::monitoring_test
