#include <algorithm>
#include <atomic>
#include <cerrno>
#include <random>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/comms/OtherDescriptors.h"
#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/Emulator.h"
#include "tests/support/Seed.h"

namespace com_tesk::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// An operation on another thread that is stopped before its system call: it has chosen its descriptor, but has not
/// used it yet. It continues on request, or after a while, because a closing thread may wait for it.
class StoppedOperation {
  public:
    template <typename Operation>
    StoppedOperation(const std::string& call, Operation operation)
        : thread([this, call, operation] {
              SystemCalls calls;
              calls.before(call, [this] {
                  isStopped = true;
                  waitUntil([this] { return mayContinue.load(); }, 200ms);
                  hasContinued = true;
              });
              result = operation();
          }) {
        EXPECT_TRUE(waitUntil([this] { return isStopped.load(); }));
    }
    StoppedOperation(const StoppedOperation&) = delete;
    StoppedOperation& operator=(const StoppedOperation&) = delete;
    ~StoppedOperation() { finish(); }

    /// Continues the operation and returns its result.
    int finish() {
        mayContinue = true;
        if (thread.joinable()) {
            thread.join();
        }
        return result;
    }

    std::atomic<bool> hasContinued{false};

  private:
    std::atomic<bool> isStopped{false};
    std::atomic<bool> mayContinue{false};
    int result = -99;
    std::thread thread;
};

class TransportDescriptorSafety : public testing::Test {
  protected:
    TransportDescriptorSafety() { connect(); }

    void connect() {
        // The new socket then gets the lowest free number.
        peer.reset();
        transport.reset();
        transport = std::make_unique<VisibleTransport>();
        EXPECT_TRUE(transport->openConnection(ScriptedHost::address(), host.port()));
        peer = host.accept();
        descriptor = transport->descriptor();
    }

    int write() const { return transport->writeMessage(messageOf("A1 A2 A3")); }

    ScriptedHost host;
    std::unique_ptr<VisibleTransport> transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
    int descriptor = -1;
};

TEST_F(TransportDescriptorSafety, AWriteOvertakenByCloseOrDestructionReachesNoOtherDescriptor) {
    for (const bool isDestroyed : {false, true}) {
        StoppedOperation writer("write", [&used = *transport] { return used.writeMessage(messageOf("A1 A2 A3")); });
        if (isDestroyed) {
            transport.reset();
        } else {
            EXPECT_EQ(transport->close(), 0);
        }
        EXPECT_TRUE(writer.hasContinued) << "close waits for the write";
        const OtherDescriptors other;
        ASSERT_TRUE(other.hasNumber(descriptor)) << "the test could not fail";
        EXPECT_EQ(writer.finish(), -1);
        EXPECT_EQ(other.contents(), "1 0");
        connect();
    }
}

TEST_F(TransportDescriptorSafety, AReadOvertakenByCloseReachesNoOtherDescriptor) {
    RawMessage message(RawMessage::DATA);
    StoppedOperation reader("read", [&] { return transport->readMessage(3, message); });
    EXPECT_EQ(transport->close(), 0);
    const OtherDescriptors other;
    ASSERT_TRUE(other.hasNumber(descriptor)) << "the test could not fail";
    EXPECT_LE(reader.finish(), 0);
    EXPECT_EQ(other.contents(), "1 0");
    EXPECT_EQ(hexText(message), "00 00 00");
}

TEST_F(TransportDescriptorSafety, AWriteOvertakenByAReopeningDoesNotReachTheNewConnection) {
    ScriptedHost newHost;
    StoppedOperation writer("write", [&] { return write(); });
    ASSERT_TRUE(transport->openConnection(ScriptedHost::address(), newHost.port()));
    ASSERT_EQ(transport->descriptor(), descriptor) << "the test could not fail";
    writer.finish();
    const auto newPeer = newHost.accept();
    ASSERT_NE(newPeer, nullptr);
    EXPECT_TRUE(newPeer->isQuietFor(50ms));
}

TEST_F(TransportDescriptorSafety, AWriteThatComesWhileCloseWaitsFailsAtOnce) {
    StoppedOperation writer("write", [&] { return write(); });
    std::thread closer([&] { transport->close(); });
    EXPECT_TRUE(waitUntil([&] { return transport->descriptor() == -1; }));
    {
        const SystemCalls calls;
        EXPECT_EQ(write(), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(calls.text(), "");
    }
    EXPECT_EQ(transport->close(), -1);
    closer.join();
}

TEST_F(TransportDescriptorSafety, AConnectInProgressDelaysNeitherCloseNorAWriter) {
    transport->close();
    StoppedOperation opener("connect",
                            [&] { return transport->openConnection(ScriptedHost::address(), host.port()) ? 1 : 0; });
    EXPECT_EQ(write(), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(transport->close(), -1) << "there is no socket before the connection is established";
    EXPECT_FALSE(opener.hasContinued);
    EXPECT_EQ(opener.finish(), 1);
    EXPECT_EQ(transport->close(), 0);
}

/// A host that accepts every connection, sends 256 times 'S', and checks that it receives only 'W'.
class CheckingHost {
  public:
    CheckingHost() : thread([this] { run(); }) {}
    CheckingHost(const CheckingHost&) = delete;
    CheckingHost& operator=(const CheckingHost&) = delete;
    ~CheckingHost() { stop(); }

    void stop() {
        isOver = true;
        if (thread.joinable()) {
            thread.join();
        }
    }

    unsigned int port() const { return host.port(); }

    std::atomic<long> received{0};
    std::atomic<long> strays{0};

  private:
    void run() {
        while (!isOver) {
            if (auto peer = host.accept(1ms)) {
                try {
                    peer->send(Bytes(256, 'S'));
                    peers.push_back(std::move(peer));
                } catch (const std::system_error&) {
                    // The client has closed already.
                }
            }
            peers.erase(std::remove_if(peers.begin(), peers.end(), [this](const auto& peer) { return !drain(*peer); }),
                        peers.end());
        }
    }

    /// Reads a bounded number of bytes, so that no connection delays the others. Returns false at its end.
    bool drain(ScriptedHost::Peer& peer) {
        if (peer.isQuietFor(0ms)) {
            return true;
        }
        const Bytes bytes = peer.receive(4096, 0ms);
        received += static_cast<long>(bytes.size());
        strays += std::count_if(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte != 'W'; });
        return !bytes.empty();
    }

    ScriptedHost host;
    std::vector<std::unique_ptr<ScriptedHost::Peer>> peers;
    std::atomic<bool> isOver{false};
    std::thread thread;
};

/// Threads that repeat operations on one transport until `join`.
class TransportConcurrentUse : public BothTransports {
  protected:
    template <typename Operation>
    void repeat(const Operation& operation) {
        threads.emplace_back([this, operation] {
            while (!isOver) {
                operation();
            }
        });
    }

    void join() {
        isOver = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    bool openToHost() { return transport->openConnection(ScriptedHost::address(), checkingHost.port()); }

    /// Closes repeatedly while the other threads continue.
    void expectClosesReturn(int count) {
        auto closed = std::async(std::launch::async, [this, count] {
            for (int i = 0; i < count; ++i) {
                transport->close();
                std::this_thread::sleep_for(2ms);
            }
        });
        // Thousands of times what they need.
        EXPECT_EQ(closed.wait_for(20s), std::future_status::ready);
        join();
    }

    CheckingHost checkingHost;
    const RawMessage message = messageOfBytes(Bytes(48, 'W'));
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
};

INSTANTIATE_TEST_SUITE_P(Of, TransportConcurrentUse, testing::Bool(), nameOfTransport);

TEST_P(TransportConcurrentUse, CloseReturnsThoughTheReaderOpensAgainAtOnce) {
    repeat([this] {
        openToHost();
        readOnce(*transport, 32);
    });
    expectClosesReturn(50);
}

TEST_P(TransportConcurrentUse, CloseReturnsThoughEightWritersContinue) {
    for (int i = 0; i < 8; ++i) {
        repeat([this] { transport->writeMessage(message); });
    }
    repeat([this] {
        openToHost();
        std::this_thread::sleep_for(1ms);
    });
    expectClosesReturn(300);
}

TEST_P(TransportConcurrentUse, OfClosesAndInterruptionsLeavesNoSocket) {
    repeat([this] {
        transport->close();
        std::this_thread::sleep_for(130us);
    });
    repeat([this] {
        transport->setInterrupted(true);
        transport->setInterrupted(false);
        std::this_thread::sleep_for(170us);
    });
    repeat([this] { transport->writeMessage(message); });
    int opened = 0;
    for (int i = 0; i < 300; ++i) {
        opened += openToHost() ? 1 : 0;
        readOnce(*transport, 1);
    }
    join();
    EXPECT_GT(opened, 0);
    transport->close();
    EXPECT_EQ(descriptor(), -1);
}

TEST_P(TransportConcurrentUse, TouchesNoOtherDescriptor) {
    const std::uint64_t seed = newSeed();
    std::atomic<int> written{0};
    std::atomic<int> read{0};
    std::atomic<int> closed{0};
    std::atomic<int> disturbances{0};
    std::atomic<Clock::duration::rep> maxClose{0};
    // Opens descriptors that reuse the numbers of closed ones, and checks them after a moment.
    const auto useOtherDescriptors = [&disturbances](std::mt19937_64& random) {
        const OtherDescriptors first;
        const OtherDescriptors second;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4 == 0 ? random() % 300 : 0));
        for (const OtherDescriptors* other : {&first, &second}) {
            disturbances += other->contents() == "1 0" ? 0 : 1;
        }
    };
    for (int i = 0; i < 2; ++i) {
        repeat([&] {
            if (transport->writeMessage(message) > 0) {
                ++written;
                std::this_thread::sleep_for(200us);  // A busy host needs time for new connections.
            } else {
                std::this_thread::yield();
            }
        });
        repeat([&, random = std::make_shared<std::mt19937_64>(seed + 1 + static_cast<unsigned int>(i))] {
            const auto begin = Clock::now();
            closed += transport->close() == 0 ? 1 : 0;
            maxClose = std::max(maxClose.load(), (Clock::now() - begin).count());
            useOtherDescriptors(*random);
            std::this_thread::sleep_for(std::chrono::microseconds((*random)() % 30'000));
        });
    }
    // The thread that opens is the one that reads.
    std::mt19937_64 random(seed);
    int misread = 0;
    const ElapsedTime elapsed;
    const auto isEnough = [&] { return closed > 50 && written > 50 && read > 5; };
    while (elapsed.seconds() < 2.0 || (!isEnough() && elapsed.seconds() < 20.0)) {
        if (!openToHost()) {
            continue;
        }
        for (std::uint64_t reads = random() % 4; reads > 0; --reads) {
            RawMessage received(RawMessage::DATA);
            const int count = transport->readMessage(16, received);
            if (count > 0) {
                ++read;
                misread +=
                    std::all_of(received.begin(), received.begin() + count, [](char c) { return c == 'S'; }) ? 0 : 1;
            }
        }
        useOtherDescriptors(random);
    }
    join();
    checkingHost.stop();
    EXPECT_EQ(disturbances, 0);
    EXPECT_EQ(checkingHost.strays, 0);
    EXPECT_EQ(misread, 0);
    // A writer that blocks would delay it by 30 s.
    EXPECT_LT(Clock::duration(maxClose), std::chrono::seconds(isEmulated() ? 10 : 2));
    EXPECT_TRUE(isEnough()) << closed << " closes, " << written << " writes, " << read << " reads";
    EXPECT_GT(checkingHost.received, 0);
}

}  // namespace
}  // namespace com_tesk::test
