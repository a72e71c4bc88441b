// Eight threads use everything that a session offers while its host goes and comes.

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>

#include "host/LoopbackHost.h"
#include "session/Session.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

using namespace std::chrono_literals;

constexpr unsigned int kShared = 20;
constexpr unsigned int kThreads = 8;

std::string sharedName(unsigned int number) {
    return "shared" + std::to_string(number);
}

class SessionStress : public testing::Test {
  protected:
    SessionStress() : host(std::make_unique<LoopbackHost>(LoopbackHost::Options())), session(options()) {
        for (unsigned int i = 0; i < kShared; ++i) {
            outputs.push_back(session.output<std::int32_t>(sharedName(i)));
            inputs.push_back(session.input<std::int32_t>(sharedName(i)));
        }
        every = session.output<std::int32_t>("every", Delivery::EVERY);
    }

    Session::Options options() const {
        Session::Options result;
        result.port = host->port();
        result.retry = 5ms;
        result.queueSize = 8;
        result.log = [](Session::Level /*level*/, std::string_view /*text*/) {};
        return result;
    }

    /// One random operation of one thread.
    void act(std::mt19937& random, unsigned int thread) {
        const auto number = static_cast<unsigned int>(random() % kShared);
        const std::string own = "own" + std::to_string(thread) + "." + std::to_string(random() % 3);
        switch (random() % 12) {
            case 0:
                session.output<float>(own).set(1.0F);
                break;
            case 1:
                session.output<float>(own).withdraw();
                break;
            case 2:
                session.input<float>(own).onChange([](const Reading<float>& /*reading*/) {});
                break;
            case 3:
                session.input<float>(own).withdraw();
                break;
            case 4:
                session.flush();
                break;
            case 5:
                session.dispatch();
                break;
            case 6:
                session.health();
                session.parameters();
                break;
            case 7:
                inputs[number].setMaxAge(std::chrono::milliseconds(random() % 20));
                inputs[number].onChange([this](const Reading<std::int32_t>& reading) { last = reading.value; });
                break;
            case 8:
                session.waitUntil(Link::READY, 1ms);
                break;
            case 9:
                every.set(static_cast<std::int32_t>(random()));
                break;
            default:
                // Each value tells which output it belongs to.
                outputs[number].set(static_cast<std::int32_t>(number + kShared * (random() % 1'000)));
                break;
        }
        const Reading<std::int32_t> reading = inputs[number].read();
        if (reading.number != 0 && reading.value != 0 && static_cast<unsigned int>(reading.value) % kShared != number) {
            ++strays;
        }
    }

    std::unique_ptr<LoopbackHost> host;
    Session session;
    std::vector<Output<std::int32_t>> outputs;
    std::vector<Input<std::int32_t>> inputs;
    Output<std::int32_t> every;
    std::atomic<std::int32_t> last{0};
    std::atomic<unsigned int> strays{0};
};

TEST_F(SessionStress, KeepsEveryValueUnderItsName) {
    const std::uint64_t seed = newSeed();
    std::atomic<bool> isOver{false};
    session.start();
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, &isOver, thread, seed] {
            std::mt19937 random(static_cast<std::mt19937::result_type>(seed + thread));
            while (!isOver) {
                act(random, thread);
            }
        });
    }
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    const auto end = std::chrono::steady_clock::now() + sized(2'000ms, 60'000ms);
    LoopbackHost::Options sameAddress;
    sameAddress.port = host->port();
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
        switch (random() % 4) {
            case 0:
                host->dropClients(LoopbackHost::DropMode::RESET);
                break;
            case 1:
                host->dropClients(LoopbackHost::DropMode::GRACEFUL);
                break;
            case 2:
                session.stop(std::chrono::milliseconds(random() % 10));
                session.start();
                break;
            default:
                host.reset();
                host = std::make_unique<LoopbackHost>(sameAddress);
                break;
        }
    }
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(strays, 0U);

    // The newest value of each output arrives, under its name, and comes back to the input.
    for (unsigned int i = 0; i < kShared; ++i) {
        outputs[i].set(static_cast<std::int32_t>(i + kShared));
    }
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_TRUE(session.flush(kWaitBound));
    for (unsigned int i = 0; i < kShared; ++i) {
        const auto expected = static_cast<std::int32_t>(i + kShared);
        EXPECT_TRUE(host->waitForValue(sharedName(i), HostValue::integer(expected), kWaitBound)) << i;
        EXPECT_TRUE(waitUntil([&] { return inputs[i].read().value == expected; })) << i;
    }
}

TEST_F(SessionStress, CanBeStoppedAndStartedByManyThreads) {
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (unsigned int i = 0; i < sized(25U, 2'000U); ++i) {
                if ((i + thread) % 2 == 0) {
                    session.start();
                } else {
                    session.stop();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    session.start();
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
}

TEST_F(SessionStress, CanBeDestroyedInEveryState) {
    for (unsigned int i = 0; i < sized(60U, 3'000U); ++i) {
        Session shortLived(options());
        const Output<float> output = shortLived.output<float>("short");
        shortLived.onLink([](const LinkEvent& /*event*/) {});
        shortLived.start();
        output.set(1.0F);
        std::this_thread::sleep_for(std::chrono::microseconds(i * 37 % 2'000));
        shortLived.dispatch();
    }
    EXPECT_TRUE(waitUntil([this] { return host->clientCount() == 0; }));
}

}  // namespace
}  // namespace com_tesk::test
