// The parts of a session that need no connection.

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <string>
#include <thread>

#include "session/InputSlot.h"
#include "session/LinkMonitor.h"
#include "session/NameResolver.h"
#include "session/OutputSlot.h"
#include "session/SeqLock.h"
#include "session/WakePipe.h"
#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

using session::ValueType;

/// Two threads that read again and again, until the end of this object or the first wrong read.
class Readers {
  public:
    /// @param read  returns false after a wrong read. Each thread has a copy.
    template <typename Read>
    explicit Readers(const Read& read) {
        for (std::thread& thread : threads) {
            thread = std::thread([this, own = read]() mutable {
                ++ready;
                while (!isDone && own()) {
                }
            });
        }
        waitUntil([this] { return ready == 2; });
    }
    Readers(const Readers&) = delete;
    Readers& operator=(const Readers&) = delete;
    ~Readers() {
        isDone = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

  private:
    std::atomic<bool> isDone{false};
    std::atomic<int> ready{0};
    std::array<std::thread, 2> threads;
};

TEST(SeqLocks, ReadersNeverSeeAPartOfARecord) {
    struct Record {
        std::array<std::uint64_t, 5> words;
        std::uint16_t last;
    };
    session::SeqLock<Record> lock;
    EXPECT_EQ(lock.read().words[4], 0U);
    {
        const Readers readers([&lock, before = std::uint64_t{0}]() mutable {
            const Record record = lock.read();
            const std::uint64_t first = record.words[0];
            const bool isWhole = std::all_of(record.words.begin(), record.words.end(),
                                             [first](std::uint64_t word) { return word == first; }) &&
                                 record.last == static_cast<std::uint16_t>(first);
            EXPECT_TRUE(isWhole);
            EXPECT_GE(first, before);
            const bool isNewer = first >= before;
            before = first;
            return isWhole && isNewer;
        });
        for (std::uint64_t i = 1; i <= 200'000; ++i) {
            lock.write({{i, i, i, i, i}, static_cast<std::uint16_t>(i)});
        }
    }
    EXPECT_EQ(lock.read().words[4], 200'000U);
}

TEST(WakePipes, AreReadableFromSignalUntilClear) {
    session::WakePipe pipe;
    EXPECT_FALSE(isReadable(pipe.descriptor()));
    for (int i = 0; i < 100'000; ++i) {
        pipe.signal();  // More than a pipe can hold.
    }
    EXPECT_TRUE(isReadable(pipe.descriptor()));
    pipe.clear();
    EXPECT_FALSE(isReadable(pipe.descriptor()));
    pipe.clear();
    pipe.signal();
    EXPECT_TRUE(isReadable(pipe.descriptor()));
}

TEST(ValueQueues, KeepTheNewestOrEveryValue) {
    using Push = session::ValueQueue::Push;
    session::ValueQueue queue(3);
    std::uint32_t bits = 99;
    bool hasMore = true;
    EXPECT_FALSE(queue.pop(bits, hasMore));
    EXPECT_FALSE(hasMore);
    EXPECT_EQ(bits, 99U);
    for (std::uint32_t i = 1; i <= 5; ++i) {
        EXPECT_EQ(queue.push(i), i == 1 ? Push::TAKEN : Push::REPLACED);
    }
    EXPECT_EQ(queue.keepEvery(true), 0U);
    EXPECT_EQ(queue.push(6), Push::TAKEN);
    EXPECT_EQ(queue.push(7), Push::TAKEN);
    EXPECT_EQ(queue.push(8), Push::FULL);
    for (const std::uint32_t expected : {5U, 6U, 7U}) {
        ASSERT_TRUE(queue.pop(bits, hasMore));
        EXPECT_EQ(bits, expected);
        EXPECT_EQ(hasMore, expected != 7);
    }
    for (std::uint32_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(queue.push(i), Push::TAKEN);
    }
    EXPECT_EQ(queue.keepEvery(false), 2U);
    EXPECT_EQ(queue.keepEvery(false), 0U);
    ASSERT_TRUE(queue.pop(bits, hasMore));
    EXPECT_EQ(bits, 3U) << "the newest";
}

class NoOwner : public session::SlotOwner {
  public:
    void withdraw(session::OutputSlot&) override {}
    void withdraw(session::InputSlot&) override {}
    void setCallback(session::InputSlot&, std::function<void(const session::SampleReading&)>) override {}
    void maxAgeChanged(session::InputSlot& /*slot*/) override {}
};

TEST(InputSlots, AGoodValueIsOneOfTheCurrentConnection) {
    NoOwner owner;
    std::atomic<std::uint32_t> connection{0};
    session::InputSlot slot(owner, connection, "LAMP", ValueType::INT, 0);
    {
        const Readers readers([&slot, &connection] {
            const std::uint32_t current = connection;
            const session::SampleReading reading = slot.read();
            const bool isRight = reading.quality != Quality::GOOD || reading.sample.bits >= current;
            EXPECT_TRUE(isRight) << reading.sample.bits << " on connection " << current;
            return isRight;
        });
        for (std::uint32_t i = 1; i <= 300'000; ++i) {
            connection = i;
            for (std::uint32_t pause = i % 64; pause != 0 && connection == i; --pause) {
            }
            slot.newest.write({i, false, 0, i});
            slot.confirmedOn = i;
        }
    }
    EXPECT_EQ(slot.read().quality, Quality::GOOD);
}

TEST(OutputStages, GiveOutputsInTheOrderOfTheirFirstValue) {
    session::WakePipe wake;
    session::OutputStage stage(wake);
    NoOwner owner;
    session::OutputSlot first(owner, stage, "FIRST", ValueType::INT, 0);
    session::OutputSlot second(owner, stage, "SECOND", ValueType::INT, 0);
    EXPECT_TRUE(stage.isEmpty());
    EXPECT_EQ(stage.takeAll(), nullptr);
    second.set(1);
    first.set(2);
    second.set(3);
    EXPECT_EQ(second.overwritten, 1U);
    EXPECT_FALSE(isReadable(wake.descriptor())) << "the sender does not wait";
    EXPECT_FALSE(stage.beginIdle());
    ASSERT_EQ(stage.takeAll(), &second);
    EXPECT_EQ(second.nextStaged, &first);
    EXPECT_EQ(first.nextStaged, nullptr);
    second.unstage();
    first.unstage();
    EXPECT_TRUE(stage.beginIdle());
    first.set(4);
    EXPECT_TRUE(isReadable(wake.descriptor()));
    wake.clear();
    second.set(5);
    EXPECT_FALSE(isReadable(wake.descriptor())) << "one signal for each wait";
    first.isDeclared = false;
    EXPECT_FALSE(first.set(6));
    EXPECT_EQ(first.lastSet(), 4U);
}

std::uint32_t convertedReal(float number, ValueType declared) {
    CSClient::Parameter received;
    received.type = CSClient::TYPE_FLOAT;
    received.value.asFloat = number;
    return session::convert(received, declared);
}

std::uint32_t convertedWhole(std::int32_t number, ValueType declared) {
    CSClient::Parameter received;
    received.type = CSClient::TYPE_INT;
    received.value.asInt = number;
    return session::convert(received, declared);
}

TEST(Conversions, RealsBecomeTheNearestInteger) {
    const float infinity = std::numeric_limits<float>::infinity();
    const std::pair<float, std::int32_t> cases[] = {{0.0F, 0},
                                                    {-0.0F, 0},
                                                    {2.4F, 2},
                                                    {2.6F, 3},
                                                    {-2.6F, -3},
                                                    {2147483520.0F, 2147483520},
                                                    {2147483648.0F, 2147483647},
                                                    {-2147483648.0F, -2147483647 - 1},
                                                    {-2147483904.0F, -2147483647 - 1},
                                                    {infinity, 2147483647},
                                                    {-infinity, -2147483647 - 1},
                                                    {std::nanf(""), 0},
                                                    {-std::nanf(""), 0},
                                                    {std::numeric_limits<float>::denorm_min(), 0}};
    for (const auto& [number, expected] : cases) {
        EXPECT_EQ(static_cast<std::int32_t>(convertedReal(number, ValueType::INT)), expected) << number;
    }
}

TEST(Conversions, EveryNumberButZeroIsTrue) {
    EXPECT_EQ(convertedReal(0.0F, ValueType::BOOL), 0U);
    EXPECT_EQ(convertedReal(-0.0F, ValueType::BOOL), 0U);
    EXPECT_EQ(convertedReal(std::nanf(""), ValueType::BOOL), 0U) << "no number";
    EXPECT_EQ(convertedReal(0.1F, ValueType::BOOL), 1U);
    EXPECT_EQ(convertedReal(std::numeric_limits<float>::denorm_min(), ValueType::BOOL), 1U);
    EXPECT_EQ(convertedReal(-std::numeric_limits<float>::infinity(), ValueType::BOOL), 1U);
    EXPECT_EQ(convertedWhole(0, ValueType::BOOL), 0U);
    EXPECT_EQ(convertedWhole(-256, ValueType::BOOL), 1U);
}

TEST(Conversions, IntegersBecomeRealsAndSameTypesKeepTheirBits) {
    EXPECT_EQ(convertedWhole(3, ValueType::FLOAT), 0x40400000U);
    EXPECT_EQ(convertedWhole(-2147483647 - 1, ValueType::FLOAT), 0xCF000000U);
    EXPECT_EQ(convertedWhole(2147483647, ValueType::FLOAT), 0x4F000000U);
    EXPECT_EQ(convertedWhole(-1, ValueType::INT), 0xFFFFFFFFU);
    EXPECT_EQ(convertedReal(-0.0F, ValueType::FLOAT), 0x80000000U);
    EXPECT_EQ(convertedReal(session::fromBits<float>(0x7FC12345U), ValueType::FLOAT), 0x7FC12345U);
}

TEST(NameResolvers, DottedAddressNeedsNoLookUp) {
    session::NameResolver resolver("127.1.2.3", std::make_shared<session::WakePipe>());
    resolver.begin();
    const auto result = resolver.result();
    EXPECT_TRUE(result.isComplete);
    EXPECT_EQ(result.error, 0);
    EXPECT_EQ(result.address, htonl(0x7F010203));
}

class LinkMonitors : public SessionTest {
  protected:
    LinkMonitors() {
        dispatcher.setLinkCallback([this](const LinkEvent& event) { texts += event.text + ' '; });
    }

    std::string dispatched() {
        texts.clear();
        dispatcher.run();
        return texts;
    }

    session::Log log{options.log};
    session::Dispatcher dispatcher;
    session::LinkMonitor links{dispatcher, log};
    std::string texts;
};

TEST_F(LinkMonitors, ReportChangesOfStateAndOfCauseOnly) {
    links.report({Link::CONNECTING, Cause::NONE, 0, "begin"});
    links.report({Link::CONNECTING, Cause::NONE, 0, "again"});
    links.report({Link::CONNECTING, Cause::REFUSED, 111, "refused"});
    links.report({Link::CONNECTING, Cause::REFUSED, 111, "refused-again"});
    links.report({Link::CONNECTING, Cause::UNREACHABLE, 113, "unreachable"});
    links.report({Link::CONNECTING, Cause::UNREACHABLE, 101, "other-error"});
    links.report({Link::CONNECTING, Cause::REFUSED, 111, "refused-later"});
    EXPECT_EQ(dispatched(), "begin refused unreachable other-error refused-later ");
    EXPECT_EQ(links.lastFailure().cause, Cause::REFUSED);
}

TEST_F(LinkMonitors, AnswerMakesTheSameCauseNewAgain) {
    const auto evaluate = [this](Link link) {
        links.evaluate([link] { return link; }, [](Link now) { return std::string(toString(now)); });
    };
    links.report({Link::CONNECTING, Cause::REFUSED, 111, "refused"});
    evaluate(Link::CONNECTED);
    evaluate(Link::CONNECTED);
    links.report({Link::CONNECTED, Cause::NO_ANSWER, 0, "none"});
    links.report({Link::CONNECTED, Cause::NO_ANSWER, 0, "none-again"});
    evaluate(Link::ANSWERED);
    links.report({Link::CONNECTING, Cause::NO_ANSWER, 0, "lost"});
    evaluate(Link::CONNECTING);
    EXPECT_EQ(dispatched(), "refused connected none answered lost ");
    EXPECT_EQ(links.current(), Link::CONNECTING);
}

TEST_F(LinkMonitors, WaitEndsWithTheConditionOrTheTime) {
    EXPECT_TRUE(links.waitFor([] { return true; }, 0ms));
    EXPECT_FALSE(links.waitFor([] { return false; }, 0ms));
    EXPECT_GE(timeOf([&] { EXPECT_FALSE(links.waitFor([] { return false; }, 30ms)); }), 30ms);
    std::thread later([&] {
        std::this_thread::sleep_for(20ms);
        links.report({Link::READY, Cause::NONE, 0, "ready"});
    });
    EXPECT_TRUE(links.waitFor([&] { return links.current() == Link::READY; }, kWaitBound));
    later.join();
}

}  // namespace
}  // namespace com_tesk::session_test
