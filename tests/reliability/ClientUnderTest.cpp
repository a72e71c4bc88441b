#include "tests/reliability/ClientUnderTest.h"

#include <chrono>

#include "tests/reliability/ClientOperations.h"

namespace com_tesk::test {

CSCommsInterfaceTCP* TransportKind::newTransport() const {
    return isBuffered ? new CSCommsInterfaceTCPBuffered : new CSCommsInterfaceTCP(CSCommsInterfaceTCP::Options());
}

std::unique_ptr<CSClient> TransportKind::newClient(unsigned int simulatorId, unsigned int options) const {
    auto client = std::make_unique<SimClient>(simulatorId, options);
    if (isBuffered) {
        client->changeCommsInterface(newTransport());
    }
    return client;
}

double secondsOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

CSClient::Parameter floatValue(const std::string& name, float number) {
    CSClient::Parameter parameter{name, {}, CSClient::TYPE_FLOAT, 0};
    parameter.value.asFloat = number;
    return parameter;
}

CSClient::Parameter intValue(const std::string& name, int number) {
    CSClient::Parameter parameter{name, {}, CSClient::TYPE_INT, 0};
    parameter.value.asInt = number;
    return parameter;
}

void callQueries(CSClient& client) {
    std::mt19937_64 random(1);
    for (const ClientOperation& operation : clientOperations()) {
        for (const char* const prefix : {"get", "is", "has", "find"}) {
            if (std::string(operation.name).find(prefix) == 0) {
                operation.call(client, Arguments{random, 0, nullptr});
            }
        }
    }
}

ClientUnderTest::ClientUnderTest(const TransportKind& kind, unsigned int options, unsigned int id)
    : isBuffered(kind.isBuffered), client(kind.newClient(id, CSClient::OPTION_SILENT | options)) {
    client->addCallbackInterface(&callbacks);
}

bool ClientUnderTest::isEmpty() const {
    std::vector<CSClient::Parameter> published;
    client->getAllPublishedParameters(published);
    return published.empty() && client->getNumberOfRegisteredInputParameters() == 0 &&
           client->getNumberOfUnregisteredInputParameters() == 0 &&
           client->getNumberOfRegisteredOutputParameters() == 0 &&
           client->getNumberOfUnregisteredOutputParameters() == 0;
}

void ClientUnderTest::expectQueriesAtOnce() const {
    EXPECT_LT(secondsOf([this] {
                  client->getOptions();
                  client->hasOptions(CSClient::OPTION_AUTO_RECONNECT);
                  client->getConnectionState();
                  client->getServerVersion();
                  client->getProtocolVersion();
                  client->getServerIPAddress();
                  client->getServerPort();
                  client->getNumCallbackInterfaces();
              }),
              kAtOnce);
}

void ClientUnderTest::expectAllQueriesAtOnce() const {
    expectQueriesAtOnce();
    EXPECT_LT(secondsOf([this] { callQueries(*client); }), kAtOnce);
}

void ClientUnderTest::expectPublishingAtOnce(const std::string& name) const {
    EXPECT_LT(secondsOf([this, &name] {
                  EXPECT_EQ(client->registerOutputParameter({name, CSClient::TYPE_FLOAT}), 0);
                  EXPECT_EQ(client->publishParameter(floatValue(name, 1.5F)), 0);
                  EXPECT_EQ(client->unregisterOutputParameter(name), 0);
              }),
              kAtOnce);
}

CSClient::State ClientUnderTest::close(bool isIdle) const {
    CSClient::State state = CSClient::STATE_READY;
    EXPECT_LT(secondsOf([&] { state = client->close(); }), isBuffered && isIdle ? 1.9 : 2.0 + kAtOnce);
    return state;
}

}  // namespace com_tesk::test
