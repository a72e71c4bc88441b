// Ids belong to one connection: a value never arrives under another name.

#include <atomic>
#include <map>
#include <random>
#include <string>

#include "tests/session/SessionFixtures.h"
#include "tests/support/Seed.h"

namespace com_tesk::session_test {
namespace {

using Ids = SessionTest;

constexpr unsigned int kOutputs = 8;

/// The values of output `i` are `i` modulo `kOutputs`.
std::int32_t valueOf(unsigned int output, unsigned int number) {
    return static_cast<std::int32_t>(number * kOutputs + output);
}

/// A host that assigns other ids on each connection, and checks each value against them.
class ShufflingHost {
  public:
    explicit ShufflingHost(std::uint64_t seed) : random(seed) {}

    /// Serves one connection until `frames` frames of values have arrived, or `isComplete`. Ends it in one of three ways.
    template <typename Complete>
    void serve(ScriptedHost& host, int frames, const Complete& isComplete) {
        const auto peer = host.accept();
        ASSERT_NE(peer, nullptr);
        std::map<unsigned int, unsigned int> outputOfId;
        newest.clear();
        if (random() % 2 == 0) {
            peer->shrinkReceiveBuffer();
        }
        while (frames > 0 && !isComplete()) {
            const Request request = readRequest(*peer);
            ASSERT_NE(request.code, Request::NONE) << "the session has ended the connection";
            if (request.code == Request::VALUES) {
                --frames;
                for (const Request::Record& one : request.records) {
                    ASSERT_EQ(outputOfId.count(one.id), 1U) << "a value before the confirmation, or under an old id";
                    ASSERT_EQ(one.value % kOutputs, outputOfId[one.id]) << "a value under another name";
                    newest[one.value % kOutputs] = one.value;
                    ++values;
                }
            } else if (request.code == Request::OUTPUTS) {
                confirmInParts(*peer, request, outputOfId);
            } else {
                answer(*peer, request);
            }
        }
        if (!isComplete()) {
            random() % 2 == 0 ? peer->reset() : peer->close();
        }
    }

    std::map<unsigned int, unsigned int> newest;  ///< Of the last connection, by output.
    std::uint64_t values = 0;

  private:
    /// Confirms two outputs at a time, with ids from a small range, after a pause.
    void confirmInParts(Peer& peer, const Request& request, std::map<unsigned int, unsigned int>& outputOfId) {
        std::vector<unsigned int> ids;
        for (unsigned int id = 1; id <= kOutputs; ++id) {
            ids.push_back(id);
        }
        std::shuffle(ids.begin(), ids.end(), random);
        std::vector<Request::Record> records = request.records;
        std::shuffle(records.begin(), records.end(), random);
        ASSERT_EQ(records.size(), kOutputs);
        for (std::size_t i = 0; i < records.size(); i += 2) {
            if (i == 0) {
                EXPECT_TRUE(peer.isQuietFor(5ms)) << "nothing is published before the confirmation";
            }
            for (std::size_t j = i; j < i + 2; ++j) {
                outputOfId[ids[j]] = static_cast<unsigned int>(std::stoul(records[j].name));
            }
            peer.send(
                test::hexFrame(test::outputsConfirmed({{ids[i], records[i].name}, {ids[i + 1], records[i + 1].name}})));
        }
    }

    std::mt19937_64 random;
};

void setAtFullSpeedThroughRestarts(const Session::Options& options, ScriptedHost& host, Delivery delivery) {
    ShufflingHost shuffling(test::newSeed());
    Session session(options);
    std::vector<Output<std::int32_t>> outputs;
    for (unsigned int i = 0; i < kOutputs; ++i) {
        outputs.push_back(session.output<std::int32_t>(std::to_string(i), delivery));
    }
    session.start();
    std::atomic<bool> isEnding{false};
    std::atomic<unsigned int> last{0};
    std::thread setter([&] {
        unsigned int number = 1;
        for (; !isEnding; ++number) {
            for (unsigned int i = 0; i < kOutputs; ++i) {
                outputs[i].set(valueOf(i, number));
            }
            if (number % 3 == 0) {
                session.flush();
            }
        }
        last = number;
        for (unsigned int i = 0; i < kOutputs; ++i) {
            // A queue may be full until the host has read.
            EXPECT_TRUE(waitUntil([&] { return outputs[i].set(valueOf(i, number)); }));
        }
    });
    for (int connection = 0; connection < 12 && !testing::Test::HasFailure(); ++connection) {
        shuffling.serve(host, 1 + connection % 5 * 7, [] { return false; });
    }
    isEnding = true;
    if (!testing::Test::HasFailure()) {
        shuffling.serve(host, 1'000'000, [&] {
            const auto isNewest = [&](const auto& one) {
                return one.second == static_cast<unsigned int>(valueOf(one.first, last));
            };
            return last != 0 && shuffling.newest.size() == kOutputs &&
                   std::all_of(shuffling.newest.begin(), shuffling.newest.end(), isNewest);
        });
    }
    session.stop();
    setter.join();
    EXPECT_GT(shuffling.values, 100U);
}

TEST_F(Ids, NoValueArrivesUnderAnotherNameAfterRestarts) {
    ScriptedHost host;
    options.retry = 1ms;
    options.gather = 0us;
    setAtFullSpeedThroughRestarts(optionsFor(host.port()), host, Delivery::NEWEST);
}

TEST_F(Ids, NoQueuedValueArrivesUnderAnotherNameAfterRestarts) {
    ScriptedHost host;
    options.retry = 1ms;
    options.gather = 0us;
    setAtFullSpeedThroughRestarts(optionsFor(host.port()), host, Delivery::EVERY);
}

TEST_F(Ids, NothingIsPublishedWithoutAConfirmation) {
    ScriptedHost host;
    options.retry = 1ms;
    options.gather = 0us;
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<std::int32_t>("ALT");
    const auto gear = session.output<std::int32_t>("GEAR", Delivery::EVERY);
    session.start();
    {
        const auto peer = acceptAndAnswer(host, 2);
        ASSERT_TRUE(session.waitConfirmed({altitude, gear}, kWaitBound));
        altitude.set(1);
        ASSERT_EQ(readRequest(*peer).records.at(0).value, 1U);
    }
    const auto peer = acceptAndAnswer(host, 1);
    const Request registration = readRequest(*peer);
    EXPECT_EQ(registration.code, Request::OUTPUTS);
    for (int i = 2; i < 50; ++i) {
        altitude.set(i);
        EXPECT_TRUE(gear.set(i));
        session.flush();
    }
    EXPECT_TRUE(peer->isQuietFor(50ms));
    EXPECT_FALSE(altitude.isConfirmed());
    EXPECT_EQ(session.link(), Link::ANSWERED);
    EXPECT_EQ(session.health().valuesOut, 1U);
    answer(*peer, registration, 20);
    std::map<unsigned int, std::vector<unsigned int>> arrived;
    while (!peer->isQuietFor(50ms)) {
        const Request values = readRequest(*peer);
        ASSERT_EQ(values.code, Request::VALUES);
        for (const Request::Record& one : values.records) {
            arrived[one.id].push_back(one.value);
        }
    }
    const std::map<unsigned int, std::vector<unsigned int>> expected = {{20, {49}}, {21, {49}}};
    EXPECT_EQ(arrived, expected) << "only the newest value, and once";
}

TEST_F(Ids, ValueStagedAtTheConfirmationReplacesAnEarlierOne) {
    ScriptedHost host;
    options.gather = 1h;
    Session session(optionsFor(host.port()));
    const auto gear = session.output<std::int32_t>("GEAR", Delivery::EVERY);
    gear.set(1);  // From before the connection.
    session.start();
    const auto peer = acceptAndAnswer(host, 1);
    const Request registration = readRequest(*peer);
    gear.set(2);
    answer(*peer, registration, 5);
    EXPECT_EQ(readRequest(*peer).records.at(0).value, 2U);
    session.flush();
    EXPECT_TRUE(peer->isQuietFor(50ms));
    EXPECT_EQ(session.health().overwritten, 1U);
}

TEST_F(Ids, UpdateUnderAnIdOfAnEarlierConnectionIsUnknown) {
    ScriptedHost host;
    options.retry = 1ms;
    Session session(optionsFor(host.port()));
    const auto first = session.input<std::int32_t>("FIRST");
    const auto second = session.input<std::int32_t>("SECOND");
    session.start();
    {
        const auto peer = acceptAndAnswer(host, 2);  // Ids 101 and 102.
        peer->send(test::hexFrame(test::update(1, {test::updated(101, 1, "00 00 00 07")})));
        ASSERT_TRUE(waitUntil([&] { return first.read().value == 7; }));
    }
    const auto peer = acceptAndAnswer(host, 1);
    EXPECT_EQ(readRequest(*peer).code, Request::INPUTS);
    peer->send(test::hexFrame(test::update(1, {test::updated(101, 1, "00 00 00 08")})));
    ASSERT_TRUE(waitUntil([&] { return session.health().unknownIds == 1; }));
    EXPECT_EQ(first.read().value, 7);
    peer->send(test::hexFrame(test::inputConfirmation(1, {test::confirmedInput(101, 1, "00 00 00 09", "SECOND")})));
    ASSERT_TRUE(waitUntil([&] { return second.read().value == 9; }));
    EXPECT_EQ(first.read().value, 7);
    EXPECT_EQ(first.read().quality, Quality::UNCONFIRMED);
}

TEST_F(Ids, HostThatAssignsASimulatorIdGetsEverythingUnderIt) {
    HostOptions hostOptions = record.options();
    hostOptions.assignId = 77;
    LoopbackHost host(hostOptions);
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<std::int32_t>("ALT");
    altitude.set(5);
    session.start();
    EXPECT_TRUE(host.waitForValue("ALT", HostValue::integer(5), kWaitBound));
    EXPECT_TRUE(waitUntil([&] { return session.health().simulatorId == 77; }));
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_GE(record.count(HostEvent::Kind::SIMULATOR_ID_CHANGED), 1U);
    EXPECT_TRUE(waitUntil([&] { return record.count(HostEvent::Kind::OUTPUT_CONFIRMED) == 2; })) << "under both ids";
    EXPECT_EQ(logged(Session::Level::WARNING, "simulator id 77"), 1U);
}

}  // namespace
}  // namespace com_tesk::session_test
