#include <atomic>
#include <future>

#include "host/LoopbackHost.h"
#include "tests/host/HostTest.h"
#include "tests/support/Waiting.h"

namespace com_tesk::host_test {
namespace {

using namespace std::chrono_literals;

TEST(Heartbeat, EndsWhileTheThreadOfTheHostHangs) {
    std::atomic<int> beats{0};
    test::Gate gate;
    HostOptions options;
    options.heartbeatInterval = 1ms;
    options.heartbeat = [&] { ++beats; };
    options.eventSink = [&](const HostEvent& event) {
        if (event.kind == HostEvent::Kind::VALUE_SET) {
            gate.pass();
        }
    };
    LoopbackHost host(options);
    ASSERT_TRUE(test::waitUntil([&] { return beats > 2; }));
    auto setting = std::async(std::launch::async, [&] { host.setValue("A", HostValue::real(1)); });
    ASSERT_TRUE(gate.waitUntilReached());
    const int before = beats;
    std::this_thread::sleep_for(30ms);  // Thirty intervals.
    EXPECT_EQ(beats, before);
    gate.open();
    setting.get();
    EXPECT_TRUE(test::waitUntil([&] { return beats > before; }));
    host.stop();
    const int last = beats;
    std::this_thread::sleep_for(10ms);
    EXPECT_EQ(beats, last);
}

}  // namespace
}  // namespace com_tesk::host_test
