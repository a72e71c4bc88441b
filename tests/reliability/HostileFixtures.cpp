#include "tests/reliability/HostileFixtures.h"

#include <thread>

namespace com_tesk::test {

using Clock = std::chrono::steady_clock;

double secondsOf(const std::function<void()>& action) {
    const auto start = Clock::now();
    action();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool eventually(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

CSClient::Parameter floatValue(const std::string& name, float number) {
    CSClient::Parameter parameter;
    parameter.name = name;
    parameter.value.asFloat = number;
    parameter.type = CSClient::TYPE_FLOAT;
    return parameter;
}

bool Victim::isEmpty() const {
    std::vector<CSClient::Parameter> published;
    client->getAllPublishedParameters(published);
    return published.empty() && client->getNumberOfRegisteredInputParameters() == 0 &&
           client->getNumberOfUnregisteredInputParameters() == 0 &&
           client->getNumberOfRegisteredOutputParameters() == 0 &&
           client->getNumberOfUnregisteredOutputParameters() == 0;
}

void expectQueriesAtOnce(const CSClient& client) {
    EXPECT_LT(secondsOf([&client] {
                  client.getOptions();
                  client.hasOptions(CSClient::OPTION_AUTO_RECONNECT);
                  client.getConnectionState();
                  client.getServerVersion();
                  client.getProtocolVersion();
                  client.getServerIPAddress();
                  client.getServerPort();
                  client.getNumCallbackInterfaces();
              }),
              kAtOnce);
}

void expectAllQueriesAtOnce(const CSClient& client) {
    expectQueriesAtOnce(client);
    EXPECT_LT(secondsOf([&client] {
                  client.getNumberOfRegisteredInputParameters();
                  client.getNumberOfUnregisteredInputParameters();
                  client.getNumberOfRegisteredOutputParameters();
                  client.getNumberOfUnregisteredOutputParameters();
                  client.isInputParameterRegistered("IN");
                  client.isOutputParameterRegistered("OUT");
                  CSClient::Parameter found;
                  client.findPublishedParameter("OUT", found);
                  std::vector<CSClient::Parameter> published;
                  client.getAllPublishedParameters(published);
              }),
              kAtOnce);
}

void expectPublishingAtOnce(CSClient& client, const std::string& name) {
    EXPECT_LT(secondsOf([&client, &name] {
                  EXPECT_EQ(client.registerOutputParameter({name, CSClient::TYPE_FLOAT}), 0);
                  EXPECT_EQ(client.publishParameter(floatValue(name, 1.5F)), 0);
                  EXPECT_EQ(client.unregisterOutputParameter(name), 0);
              }),
              kAtOnce);
}

CSClient::State closeInTime(CSClient& client, const ClientKind& kind) {
    return closeInTime(client, kind.endsAtOnce ? kClosingAtOnce : kClosing);
}

CSClient::State closeInTime(CSClient& client, double bound) {
    CSClient::State state = CSClient::STATE_READY;
    EXPECT_LT(secondsOf([&client, &state] { state = client.close(); }), bound);
    return state;
}

}  // namespace com_tesk::test
