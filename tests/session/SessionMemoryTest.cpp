// Makes every allocation of every operation fail once. The caller gets std::bad_alloc, and the session goes on.

#include <atomic>
#include <functional>
#include <new>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "host/LoopbackHost.h"
#include "session/Session.h"
#include "tests/support/Allocations.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

struct Operation {
    const char* name;
    std::function<void(Session& session, int number)> call;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

std::string nameOf(const testing::TestParamInfo<Operation>& tested) {
    return tested.param.name;
}

class LackOfMemory : public testing::TestWithParam<Operation> {
  protected:
    LackOfMemory() : host(LoopbackHost::Options()), session(options()) {}

    Session::Options options() const {
        Session::Options result;
        result.port = host.port();
        result.retry = std::chrono::milliseconds(5);
        result.log = [](Session::Level /*level*/, std::string_view /*text*/) {};
        return result;
    }

    LoopbackHost host;
    Session session;
};

TEST_P(LackOfMemory, IsReportedToTheCallerAndTheSessionGoesOn) {
    const Output<std::int32_t> probe = session.output<std::int32_t>("probe");
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    bool hasFailed = true;
    int granted = 0;
    for (; hasFailed; ++granted) {
        ASSERT_LT(granted, 200) << "the operation never succeeds";
        {
            const FailingMemory memory(granted, FailingMemory::ONLY_ONE);
            try {
                GetParam().call(session, granted);
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(memory.hasFailed());
            }
            hasFailed = memory.hasFailed();
        }
        probe.set(granted + 1);
        session.flush();
        ASSERT_TRUE(host.waitForValue("probe", HostValue::integer(granted + 1), kWaitBound)) << granted;
    }
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
}

INSTANTIATE_TEST_SUITE_P(
    Session, LackOfMemory,
    testing::Values(
        Operation{
            "DeclareOutput",
            [](Session& session, int number) { session.output<float>("output" + std::to_string(number)).set(1.0F); }},
        Operation{"DeclareQueuedOutput",
                  [](Session& session, int number) {
                      session.output<bool>("queued" + std::to_string(number), Delivery::EVERY);
                  }},
        Operation{"DeclareInput",
                  [](Session& session, int number) { session.input<float>("input" + std::to_string(number)); }},
        Operation{"Withdraw", [](Session& session, int /*number*/) { session.output<float>("gone").withdraw(); }},
        Operation{"OnChange",
                  [](Session& session, int /*number*/) {
                      session.input<float>("watched").onChange(
                          [text = std::string(100, 'x')](const Reading<float>& /*reading*/) {});
                  }},
        Operation{"OnLink",
                  [](Session& session, int /*number*/) {
                      session.onLink([text = std::string(100, 'x')](const LinkEvent& /*event*/) {});
                  }},
        Operation{"Flush", [](Session& session, int /*number*/) { session.flush(); }},
        Operation{
            "WaitUntil",
            [](Session& session, int /*number*/) { session.waitUntil(Link::CONNECTED, std::chrono::milliseconds(0)); }},
        Operation{"Dispatch", [](Session& session, int /*number*/) { session.dispatch(); }},
        Operation{"Health", [](Session& session, int /*number*/) { session.health(); }},
        Operation{"Parameters", [](Session& session, int /*number*/) { session.parameters(); }},
        Operation{"StopAndStart",
                  [](Session& session, int /*number*/) {
                      session.stop();
                      try {
                          session.start();
                      } catch (const std::bad_alloc&) {
                          session.start();
                          throw;
                      }
                  }}),
    &nameOf);

TEST_F(LackOfMemory, StopNeedsNoMemory) {
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    const FailingMemory memory(0, FailingMemory::ALL_LATER);
    session.stop();
    EXPECT_EQ(session.link(), Link::STOPPED);
}

TEST_F(LackOfMemory, SettingNeedsNoMemory) {
    const Output<float> newest = session.output<float>("newest");
    const Output<float> every = session.output<float>("every", Delivery::EVERY);
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    {
        const FailingMemory memory(0, FailingMemory::ALL_LATER);
        newest.set(1.0F);
        every.set(2.0F);
        EXPECT_FALSE(memory.hasFailed());
    }
    EXPECT_TRUE(host.waitForValue("newest", HostValue::real(1.0F), kWaitBound));
    EXPECT_TRUE(host.waitForValue("every", HostValue::real(2.0F), kWaitBound));
}

/// Makes an allocation of its thread fail, and counts the threads on which that has happened.
class FailureOnThisThread {
  public:
    ~FailureOnThisThread() { reset(); }
    void arm(int granted) { memory.emplace(granted, FailingMemory::ONLY_ONE); }
    void reset() {
        failures += memory && memory->hasFailed() ? 1 : 0;
        memory.reset();
    }

    static std::atomic<int> failures;

  private:
    std::optional<FailingMemory> memory;
};

std::atomic<int> FailureOnThisThread::failures{0};

/// The log runs on the session's threads. After each line, one of the thread's next allocations fails.
TEST(LackOfMemoryOnTheSessionsThreads, EndsTheConnectionAndTheSessionConnectsAgain) {
    constexpr int kAllocations = 20;
    const LoopbackHost host({});
    for (int granted = 0; granted < kAllocations; ++granted) {
        std::atomic<int> lines{0};
        Session::Options options;
        options.port = host.port();
        options.retry = std::chrono::milliseconds(5);
        options.log = [&lines, granted](Session::Level /*level*/, std::string_view /*text*/) {
            thread_local FailureOnThisThread failure;
            failure.reset();
            if (lines++ < 4) {
                failure.arm(granted);
            }
        };
        Session session(options);
        const Output<std::int32_t> output = session.output<std::int32_t>("output");
        const Input<std::int32_t> input = session.input<std::int32_t>("output");
        session.onLink([](const LinkEvent& /*event*/) {});
        session.start();
        output.set(granted + 1);
        ASSERT_TRUE(waitUntil([&] { return input.read().value == granted + 1; })) << granted;
        ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound)) << granted;
    }
    EXPECT_GT(FailureOnThisThread::failures, 5);
}

}  // namespace
}  // namespace com_tesk::test
