#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "tests/comms/BothTransports.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

using namespace std::chrono_literals;

/// For all closes of a test together: thousands of times what they need.
constexpr std::chrono::seconds kAllCloses{20};

/// A host that accepts and drops connections, until it is told to stop.
class AcceptingHost {
  public:
    unsigned int port() const { return host.port(); }

    void run(const std::atomic<bool>& isOver) {
        std::unique_ptr<ScriptedHost::Peer> last;
        while (!isOver) {
            if (auto peer = host.accept(1ms)) {
                last = std::move(peer);
            }
        }
    }

  private:
    ScriptedHost host;
};

/// Other threads begin operations again and again while one closes.
template <typename Transport>
class ClosingAgainstNewcomers : public testing::Test {
  protected:
    template <typename Operation>
    void repeat(const Operation& operation) {
        threads.emplace_back([this, operation] {
            while (!isOver) {
                operation();
            }
        });
    }

    /// Whether `count` closes return while the others go on.
    bool canClose(int count) {
        auto closed = std::async(std::launch::async, [this, count] {
            for (int i = 0; i < count; ++i) {
                transport.close();
                std::this_thread::sleep_for(2ms);
            }
        });
        const bool hasReturned = closed.wait_for(kAllCloses) == std::future_status::ready;
        isOver = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        return hasReturned;
    }

    AcceptingHost host;
    Transport transport;
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
};

TYPED_TEST_SUITE(ClosingAgainstNewcomers, BothTransports, TransportNames);

TYPED_TEST(ClosingAgainstNewcomers, ReturnsThoughTheReaderOpensAgainAtOnce) {
    this->repeat([this] { this->host.run(this->isOver); });
    this->repeat([this] {
        this->transport.openConnection(ScriptedHost::address(), this->host.port());
        readOnce(this->transport, 32);
    });
    EXPECT_TRUE(this->canClose(50));
}

TYPED_TEST(ClosingAgainstNewcomers, ReturnsThoughEightWritersGoOnWithoutASocket) {
    this->repeat([this] { this->host.run(this->isOver); });
    const RawMessage message = messageOf("01 02 03");
    for (int i = 0; i < 8; ++i) {
        this->repeat([this, &message] { this->transport.writeMessage(message); });
    }
    this->repeat([this] {
        this->transport.openConnection(ScriptedHost::address(), this->host.port());
        std::this_thread::sleep_for(1ms);
    });
    EXPECT_TRUE(this->canClose(300));
}

}  // namespace
}  // namespace com_tesk::test
