#include <sys/socket.h>

#include <algorithm>
#include <random>
#include <system_error>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/Emulator.h"
#include "tests/support/Seed.h"

namespace com_tesk::test {
namespace {

using namespace std::chrono_literals;

/// The most that a close may take. A writer that blocks would delay it by 30 s.
const double kMaxClose = isEmulated() ? 10.0 : 2.0;

/// Two connected sockets of the application. The system gives them the lowest free numbers: those of descriptors that
/// were just closed. In each direction one character is in transit, so that a stray write or read shows.
class OtherDescriptors {
  public:
    OtherDescriptors() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, descriptors), 0);
        send(descriptors[0], "0", 1, MSG_NOSIGNAL);
        send(descriptors[1], "1", 1, MSG_NOSIGNAL);
    }
    OtherDescriptors(const OtherDescriptors&) = delete;
    OtherDescriptors& operator=(const OtherDescriptors&) = delete;
    ~OtherDescriptors() {
        ::close(descriptors[0]);
        ::close(descriptors[1]);
    }

    bool hasNumber(int descriptor) const { return descriptor == descriptors[0] || descriptor == descriptors[1]; }

    /// Reads all. Returns true when no other thread has read, written or closed here.
    bool areUntouched() const { return contentsOf(descriptors[0]) == "1" && contentsOf(descriptors[1]) == "0"; }

  private:
    static std::string contentsOf(int descriptor) {
        char buffer[256];
        const ssize_t count = recv(descriptor, buffer, sizeof buffer, MSG_DONTWAIT);
        return {buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

    int descriptors[2] = {-1, -1};
};

/// An operation on another thread that is stopped before its system call: it has chosen its descriptor, but has not
/// used it yet. It continues on request, or after a while, because a closing thread may wait for it.
class StoppedOperation {
  public:
    StoppedOperation(const std::string& call, const std::function<int()>& operation)
        : result(std::async(std::launch::async, [this, call, operation] {
              SystemCalls calls;
              calls.before(call, [this] {
                  isStopped.open();
                  mayContinue.wait(200ms);
                  hasContinued = true;
              });
              return operation();
          })) {
        EXPECT_TRUE(isStopped.wait());
    }

    /// Continues the operation and returns its result.
    int finish() {
        mayContinue.open();
        return result.get();
    }

    std::atomic<bool> hasContinued{false};

  private:
    Latch isStopped;
    Latch mayContinue;
    std::future<int> result;
};

class TransportDescriptorSafety : public BothTransports {
  protected:
    void SetUp() override {
        peer.reset();  // The new socket gets the lowest free number.
        transport.reset();
        transport = newTransport();
        connect();
        number = descriptor();
    }

    std::function<int()> writing() {
        return [used = transport.get()] { return used->writeMessage(messageOf("A1 A2 A3")); };
    }

    int number = -1;
};

INSTANTIATE_TEST_SUITE_P(Of, TransportDescriptorSafety, testing::Values(false), nameOfTransport);

TEST_P(TransportDescriptorSafety, AReadOrWriteOvertakenByCloseOrDestructionReachesNoOther) {
    for (const auto& [isRead, isDestroyed] : {std::pair{false, false}, {false, true}, {true, false}, {true, true}}) {
        SetUp();
        RawMessage message(RawMessage::DATA);
        const auto reading = [&, used = transport.get()] { return used->readMessage(3, message); };
        StoppedOperation operation(isRead ? "read" : "write", isRead ? std::function<int()>(reading) : writing());
        if (isDestroyed) {
            transport.reset();
        } else {
            EXPECT_EQ(transport->close(), 0);
        }
        EXPECT_TRUE(operation.hasContinued) << "close waits for it";
        const OtherDescriptors other;
        ASSERT_TRUE(other.hasNumber(number)) << "the test could not fail";
        EXPECT_LE(operation.finish(), isRead ? 0 : -1);
        EXPECT_TRUE(other.areUntouched());
        EXPECT_EQ(hexText(message), isRead ? "00 00 00" : "");
    }
}

TEST_P(TransportDescriptorSafety, AWriteOvertakenByAReopeningDoesNotReachTheNewConnection) {
    StoppedOperation writer("write", writing());
    ASSERT_TRUE(open());
    ASSERT_EQ(descriptor(), number) << "the test could not fail";
    writer.finish();
    const auto newPeer = host.accept();
    ASSERT_NE(newPeer, nullptr);
    EXPECT_TRUE(newPeer->isQuietFor(50ms));
}

TEST_P(TransportDescriptorSafety, AWriteThatComesWhileCloseWaitsFailsAtOnce) {
    StoppedOperation writer("write", writing());
    const auto closing = std::async(std::launch::async, [&] { return transport->close(); });
    EXPECT_TRUE(waitUntil([&] { return descriptor() == -1; }));
    {
        const SystemCalls calls;
        EXPECT_EQ(writing()(), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(calls.text(), "");
    }
    EXPECT_EQ(transport->close(), -1);
}

TEST_P(TransportDescriptorSafety, AConnectInProgressDelaysNeitherCloseNorAWriter) {
    transport->close();
    StoppedOperation opener("connect", [&] { return open() ? 1 : 0; });
    EXPECT_EQ(writing()(), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(transport->close(), -1) << "there is no socket before the connection is established";
    EXPECT_FALSE(opener.hasContinued);
    EXPECT_EQ(opener.finish(), 1);
    EXPECT_EQ(transport->close(), 0);
}

/// A host that accepts every connection, sends 256 times 'S', and checks that it receives only 'W'.
class CheckingHost {
  public:
    CheckingHost() : running(std::async(std::launch::async, [this] { run(); })) {}
    CheckingHost(const CheckingHost&) = delete;
    CheckingHost& operator=(const CheckingHost&) = delete;
    ~CheckingHost() { stop(); }

    void stop() {
        isOver = true;
        running.wait();
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
    std::future<void> running;
};

/// Threads that repeat operations on one transport until `join`.
class TransportConcurrentUse : public BothTransports {
  protected:
    void repeat(const std::function<void()>& operation) {
        threads.push_back(std::async(std::launch::async, [this, operation] {
            while (!isOver) {
                operation();
            }
        }));
    }

    void join() {
        isOver = true;
        threads.clear();
    }

    bool openToHost() { return transport->openConnection(ScriptedHost::address(), checkingHost.port()); }
    /// Closes, and records the longest time of a close.
    int timedClose() {
        const Stopwatch elapsed;
        const int result = transport->close();
        const std::lock_guard<std::mutex> lock(mutex);
        longestClose = std::max(longestClose, elapsed.seconds());
        return result;
    }

    /// Closes repeatedly while the other threads continue.
    void expectClosesReturn(int count) {
        const Stopwatch elapsed;
        for (int i = 0; i < count; ++i) {
            timedClose();
            std::this_thread::sleep_for(2ms);
        }
        join();
        EXPECT_LT(elapsed.seconds(), 20.0);
        EXPECT_LT(longestClose, kMaxClose);
    }

    std::mutex mutex;
    double longestClose = 0.0;
    CheckingHost checkingHost;
    const RawMessage message = messageOfBytes(Bytes(48, 'W'));
    std::atomic<bool> isOver{false};
    std::vector<std::future<void>> threads;
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
    // Opens descriptors that reuse the numbers of closed ones, and checks them after a moment.
    const auto useOtherDescriptors = [&disturbances](std::mt19937_64& random) {
        const OtherDescriptors first;
        const OtherDescriptors second;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4 == 0 ? random() % 300 : 0));
        disturbances += first.areUntouched() && second.areUntouched() ? 0 : 1;
    };
    for (int i = 0; i < 2; ++i) {
        repeat([&] {
            if (transport->writeMessage(message) > 0) {
                ++written;
                std::this_thread::sleep_for(200us);  // A busy host needs time for new connections.
            }
        });
        repeat([&, random = std::make_shared<std::mt19937_64>(seed + 1 + static_cast<unsigned int>(i))] {
            closed += timedClose() == 0 ? 1 : 0;
            useOtherDescriptors(*random);
            std::this_thread::sleep_for(std::chrono::microseconds((*random)() % 30'000));
        });
    }
    std::mt19937_64 random(seed);
    std::ptrdiff_t misread = 0;
    const Stopwatch elapsed;
    const auto isEnough = [&] { return closed > 50 && written > 50 && read > 5; };
    while (elapsed.seconds() < 2.0 || (!isEnough() && elapsed.seconds() < 20.0)) {
        if (!openToHost()) {
            continue;
        }
        for (std::uint64_t reads = random() % 4; reads > 0; --reads) {
            RawMessage received(RawMessage::DATA);
            const int count = transport->readMessage(16, received);
            read += count > 0 ? 1 : 0;
            misread +=
                std::count_if(received.begin(), received.begin() + std::max(count, 0), [](char c) { return c != 'S'; });
        }
        useOtherDescriptors(random);
    }
    join();
    checkingHost.stop();
    EXPECT_EQ(disturbances, 0);
    EXPECT_EQ(checkingHost.strays, 0);
    EXPECT_EQ(misread, 0);
    EXPECT_LT(longestClose, kMaxClose);
    EXPECT_TRUE(isEnough()) << closed << " closes, " << written << " writes, " << read << " reads";
    EXPECT_GT(checkingHost.received, 0);
}

}  // namespace
}  // namespace com_tesk::test
