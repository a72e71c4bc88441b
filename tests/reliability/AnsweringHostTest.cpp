#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "host/Replies.h"
#include "host/Requests.h"
#include "tests/reliability/HostileFixtures.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

/// A host that answers each request in full before it reads the next one, and waits when its answer does not leave.
class AnsweringHost {
  public:
    /// @param hasSmallBuffer  whether its socket holds few answers, so that it waits soon.
    explicit AnsweringHost(bool hasSmallBuffer) : isSmall(hasSmallBuffer), thread([this] { run(); }) {}
    AnsweringHost(const AnsweringHost&) = delete;
    AnsweringHost& operator=(const AnsweringHost&) = delete;
    ~AnsweringHost() { thread.join(); }

    unsigned int port() const { return host.port(); }

    std::atomic<int> echoes{0};

  private:
    void run() {
        const auto peer = host.accept();
        if (peer && isSmall) {
            peer->shrinkSendBuffer();
        }
        try {
            while (peer && answer(*peer)) {
            }
        } catch (const std::exception&) {
            // The client has closed.
        }
    }

    bool answer(ScriptedHost::Peer& peer) {
        constexpr std::size_t kHeader = 32;
        const Bytes header = peer.receive(kHeader);
        if (header.size() != kHeader) {
            return false;
        }
        const host::Request request = host::parseRequest(peer.receive(host::wordAt(header, 0) - kHeader));
        if (const auto* const inputs = std::get_if<host::SubscribeInputs>(&request)) {
            std::vector<host::InputConfirmation> confirmations;
            for (const auto& input : inputs->inputs) {
                confirmations.push_back({++lastId, input.rate, input.secondRate, HostValue::real(0), input.name});
            }
            peer.send(host::encodeInputsReply(7, confirmations));
        } else if (const auto* const outputs = std::get_if<host::RegisterOutputs>(&request)) {
            std::vector<host::OutputConfirmation> confirmations;
            for (const auto& output : outputs->outputs) {
                confirmations.push_back({++lastId, output.rate, output.integerFlag, output.name});
            }
            peer.send(host::encodeOutputsReply(7, confirmations));
        } else if (const auto* const values = std::get_if<host::Publish>(&request)) {
            std::vector<host::InputUpdate> updates;
            for (const auto& value : values->values) {
                updates.push_back({1, HostValue::fromBits(value.bits, false)});
            }
            peer.send(host::encodeUpdate(7, updates));
            ++echoes;
        }
        return true;
    }

    const bool isSmall;
    ScriptedHost host;
    std::uint32_t lastId = 0;
    std::thread thread;
};

/// Callbacks that keep nothing.
class NoCallbacks : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State /*newState*/) override {}
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        updates += static_cast<int>(parameters.size());
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}

    std::atomic<int> updates{0};
};

/// A client with the buffered transport, and a host that answers before it reads on.
class HostThatAnswersFirst : public testing::Test {
  protected:
    explicit HostThatAnswersFirst(bool hasSmallBuffer = false) : host(hasSmallBuffer) {}

    void open(const CSClient::ConnectionOptions* options = nullptr) {
        ASSERT_EQ(client->open(ScriptedHost::address(), host.port(), options), 0);
        ASSERT_TRUE(client->waitForConnectionState(CSClient::STATE_READY, 10));
    }

    ~HostThatAnswersFirst() override { client->close(); }

    AnsweringHost host;
    NoCallbacks callbacks;
    const std::unique_ptr<CSClient> client = makeBufferedClient(7, CSClient::OPTION_SILENT);
};

TEST_F(HostThatAnswersFirst, DoesNotBringATightLoopOfPublicationsToAStop) {
    constexpr int kValues = 1'000;
    ASSERT_NO_FATAL_FAILURE(open());
    client->addCallbackInterface(&callbacks);
    ASSERT_EQ(client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1}), 0);
    ASSERT_EQ(client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT}), 0);
    ASSERT_TRUE(client->waitForInputsToBeRegistered(10));
    ASSERT_TRUE(client->waitForOutputsToBeRegistered(10));
    const std::vector<CSClient::Parameter> values(kValues, floatValue("OUT", 1.5F));
    std::atomic<bool> isOver{false};
    auto publishing = std::async(std::launch::async, [&] {
        int result = 0;
        while (result == 0 && !isOver) {
            result = client->publishParameters(values);
        }
        return result;
    });
    // Stood still, a host that waits for the client would wait for thirty seconds.
    const auto end = std::chrono::steady_clock::now() + sized(std::chrono::seconds(2), std::chrono::seconds(20));
    bool isMoving = true;
    while (isMoving && std::chrono::steady_clock::now() < end) {
        const int before = host.echoes;
        isMoving = eventually([&] { return host.echoes >= before + 100; });
        std::this_thread::sleep_for(milliseconds(10));
    }
    isOver = true;
    if (!isMoving) {
        client->close();
    }
    EXPECT_TRUE(isMoving) << "stands still after " << host.echoes << " echoes";
    EXPECT_EQ(publishing.get(), 0);
    EXPECT_TRUE(eventually([&] { return callbacks.updates >= kValues * host.echoes; }))
        << callbacks.updates << " updates of " << host.echoes << " echoes";
}

struct HostThatAnswersFirstAndHoldsLittle : HostThatAnswersFirst {
    HostThatAnswersFirstAndHoldsLittle() : HostThatAnswersFirst(true) {}
};

TEST_F(HostThatAnswersFirstAndHoldsLittle, DoesNotBringRegistrationsToAStop) {
    constexpr int kRegistrations = 100;
    constexpr int kInputs = 100;
    const CSClient::ConnectionOptions small{4'096, 4'096};
    ASSERT_NO_FATAL_FAILURE(open(&small));
    auto registering = std::async(std::launch::async, [&] {
        int failures = 0;
        for (int i = 0; i < kRegistrations; ++i) {
            std::vector<CSClient::InputDef> inputs;
            for (int j = 0; j < kInputs; ++j) {
                inputs.push_back({"IN" + std::to_string(i * kInputs + j), CSClient::TYPE_FLOAT, 1});
            }
            failures += client->registerInputParameters(inputs) == 0 ? 0 : 1;
        }
        return failures;
    });
    const bool hasReturned = registering.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    EXPECT_TRUE(hasReturned) << client->getNumberOfRegisteredInputParameters() << " are registered";
    if (!hasReturned) {
        client->close();
    }
    EXPECT_EQ(registering.get(), 0);
    EXPECT_TRUE(eventually([&] { return client->getNumberOfRegisteredInputParameters() == kRegistrations * kInputs; }));
}

}  // namespace
}  // namespace com_tesk::test
