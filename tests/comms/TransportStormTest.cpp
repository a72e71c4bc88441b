#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "message/RawMessage.h"
#include "tests/comms/ForeignPair.h"
#include "tests/comms/OpenTransport.h"
#include "tests/support/Emulator.h"

namespace com_tesk::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kWritten = 'W';
constexpr char kSent = 'S';

/// A host on a thread of its own that takes every connection, sends it something to read and looks at what comes.
class BusyHost {
  public:
    BusyHost() : thread([this] { run(); }) {}
    BusyHost(const BusyHost&) = delete;
    BusyHost& operator=(const BusyHost&) = delete;
    ~BusyHost() { stop(); }

    void stop() {
        isOver = true;
        if (thread.joinable()) {
            thread.join();
        }
    }

    unsigned int port() const { return host.port(); }

    std::atomic<long> received{0};
    /// Bytes that no client of this host has written.
    std::atomic<long> strays{0};

  private:
    void run() {
        while (!isOver) {
            if (auto peer = host.accept(std::chrono::milliseconds(1))) {
                try {
                    peer->send(Bytes(256, kSent));
                    peers.push_back(std::move(peer));
                } catch (const std::system_error&) {
                    // The client has gone already.
                }
            }
            peers.erase(std::remove_if(peers.begin(), peers.end(), [this](const auto& peer) { return !drain(*peer); }),
                        peers.end());
        }
    }

    /// Looks at some of what has come, so that no connection keeps the others waiting.
    /// @return whether the connection stands.
    bool drain(ScriptedHost::Peer& peer) {
        if (peer.isQuietFor(std::chrono::milliseconds(0))) {
            return true;
        }
        const Bytes bytes = peer.receive(4096, std::chrono::milliseconds(0));
        received += static_cast<long>(bytes.size());
        strays += std::count_if(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte != kWritten; });
        return !bytes.empty();
    }

    ScriptedHost host;
    std::vector<std::unique_ptr<ScriptedHost::Peer>> peers;
    std::atomic<bool> isOver{false};
    std::thread thread;
};

/// A host on a busy machine that has a million writes to look at sends a new connection something only when that is closed again.
void leaveTimeToHost() {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
}

/// Opens descriptors that take over the numbers of closed ones, leaves them for a moment and counts what happened to
/// them meanwhile.
class Bystander {
  public:
    void watch(std::mt19937& random) {
        const ForeignPair first;
        const ForeignPair second;
        if (random() % 4 == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        } else {
            std::this_thread::yield();
        }
        for (const ForeignPair* pair : {&first, &second}) {
            const std::string contents = pair->contents();
            if (contents != "1 0" && ++disturbances == 1) {
                const std::lock_guard<std::mutex> lock(mutex);
                firstDisturbance = contents;
            }
        }
    }

    std::atomic<int> disturbances{0};

    std::string example() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return firstDisturbance;
    }

  private:
    mutable std::mutex mutex;
    std::string firstDisturbance;
};

TEST(TransportStorm, OfWritesClosesAndReopeningsTouchesNoForeignDescriptor) {
    const unsigned int seed = std::random_device()();
    std::cout << "seed " << seed << '\n';

    BusyHost host;
    VisibleTransport transport;
    Bystander bystander;
    std::atomic<bool> isOver{false};
    std::atomic<int> written{0};
    std::atomic<int> read{0};
    std::atomic<int> closed{0};
    std::atomic<int> misread{0};
    std::atomic<Clock::duration::rep> longestClose{0};
    std::vector<std::thread> threads;

    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            RawMessage message(RawMessage::DATA);
            message.resize(48, kWritten);
            while (!isOver) {
                if (transport.writeMessage(message) > 0) {
                    ++written;
                    leaveTimeToHost();
                } else {
                    std::this_thread::yield();
                }
            }
        });
    }
    for (unsigned int i = 0; i < 2; ++i) {
        threads.emplace_back([&, i] {
            std::mt19937 random(seed + 1 + i);
            while (!isOver) {
                const auto begin = Clock::now();
                closed += transport.close() == 0 ? 1 : 0;
                longestClose = std::max(longestClose.load(), (Clock::now() - begin).count());
                bystander.watch(random);
                // Sometimes the thread that opens gets to read.
                std::this_thread::sleep_for(std::chrono::microseconds(random() % 30'000));
            }
        });
    }

    // The thread that opens is the one that reads.
    std::mt19937 random(seed);
    const auto isStorm = [&] { return closed > 50 && written > 50 && read > 5; };
    const auto start = Clock::now();
    const auto hasLasted = [start](int seconds) { return Clock::now() - start > std::chrono::seconds(seconds); };
    while (!hasLasted(2) || (!isStorm() && !hasLasted(20))) {
        if (!transport.openConnection(ScriptedHost::address(), host.port())) {
            continue;
        }
        for (unsigned int reads = static_cast<unsigned int>(random() % 4); reads > 0; --reads) {
            RawMessage message(RawMessage::DATA);
            const int count = transport.readMessage(16, message);
            if (count > 0) {
                ++read;
                misread +=
                    std::all_of(message.begin(), message.begin() + count, [](char c) { return c == kSent; }) ? 0 : 1;
            }
        }
        bystander.watch(random);
    }
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    host.stop();

    EXPECT_EQ(bystander.disturbances, 0) << "for example: " << bystander.example();
    EXPECT_EQ(host.strays, 0);
    EXPECT_EQ(misread, 0);
    // A blocked writer would hold it up for 30 s.
    EXPECT_LT(Clock::duration(longestClose), std::chrono::seconds(isEmulated() ? 10 : 2));
    EXPECT_TRUE(isStorm()) << closed << " closes, " << written << " writes, " << read << " reads";
    EXPECT_GT(host.received, 0);
}

TEST(TransportStorm, OfLateWritesDoesNotHoldCloseUp) {
    BusyHost host;
    VisibleTransport transport;
    std::atomic<bool> isOver{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([&] {
            RawMessage message(RawMessage::DATA);
            message.resize(48, kWritten);
            while (!isOver) {
                transport.writeMessage(message);
            }
        });
    }
    for (int round = 0; round < 100; ++round) {
        EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
        std::this_thread::yield();
        const auto start = Clock::now();
        EXPECT_EQ(transport.close(), 0);
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
    }
    isOver = true;
    for (std::thread& writer : writers) {
        writer.join();
    }
}

}  // namespace
}  // namespace com_tesk::test
