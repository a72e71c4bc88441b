#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "client/SimClient.h"
#include "host/LoopbackHost.h"
#include "tests/reliability/HostileFixtures.h"
#include "tests/reliability/Sockets.h"

namespace com_tesk::test {
namespace {

/// Stays in the callback of an update until the client is being destroyed, and calls a virtual operation then.
class LateCaller : public CSClient::CallbackIface {
  public:
    explicit LateCaller(unsigned int openedPort) : port(openedPort) {}

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override {
        isInside = true;
        eventually([this] { return isDestroying.load(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        result = client->open(kHostAddress, port, nullptr);
    }
    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State /*newState*/) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}

    CSClient* client = nullptr;
    std::atomic<bool> isInside{false};
    std::atomic<bool> isDestroying{false};
    std::atomic<int> result{-1};

  private:
    const unsigned int port;
};

// The object changes its type while it is destroyed, which the thread sanitizer sees.
TEST(DestructionDuringACallback, LetsTheCallbackUseTheWholeClient) {
    HostOptions options;
    options.listenAddress = kHostAddress;
    LoopbackHost host(options);
    LateCaller late(host.port());
    auto client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    late.client = client.get();
    client->addCallbackInterface(&late);
    client->registerInputParameter({"A", CSClient::TYPE_INT, 1});
    ASSERT_EQ(client->open(kHostAddress, host.port(), nullptr), 0);
    ASSERT_TRUE(eventually([&late] { return late.isInside.load(); }));
    late.isDestroying = true;
    client.reset();
    EXPECT_EQ(late.result, 2);
}

}  // namespace
}  // namespace com_tesk::test
