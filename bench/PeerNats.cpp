#include <nats/nats.h>

#include "bench/Peer.h"

namespace com_tesk::bench {

namespace {

class NatsClient : public PeerClient {
  public:
    explicit NatsClient(unsigned int port) {
        const std::string url = "nats://127.0.0.1:" + std::to_string(port);
        check(natsConnection_ConnectTo(&connection, url.c_str()) == NATS_OK, "nats");
    }
    ~NatsClient() override {
        natsSubscription_Destroy(subscription);
        natsConnection_Destroy(connection);
    }

    void publish(unsigned int count) override {
        for (unsigned int i = 0; i < count; ++i) {
            natsConnection_Publish(connection, "value", &i, sizeof i);
        }
        natsConnection_Flush(connection);
    }

    void subscribe() override {
        check(natsConnection_SubscribeSync(&subscription, connection, "value") == NATS_OK, "nats subscribe");
        natsConnection_Flush(connection);
    }

    void receive(unsigned int count) override {
        constexpr int kMilliseconds = 60'000;
        for (unsigned int i = 0; i < count; ++i) {
            natsMsg* message = nullptr;
            check(natsSubscription_NextMsg(&message, subscription, kMilliseconds) == NATS_OK, "nats receive");
            natsMsg_Destroy(message);
        }
    }

  private:
    natsConnection* connection = nullptr;
    natsSubscription* subscription = nullptr;
};

}  // namespace

Peer natsPeer() {
    return {"nats", {"nats-server", "-a", "127.0.0.1", "-p", "PORT"}, [](unsigned int port) {
                return std::make_unique<NatsClient>(port);
            }};
}

}  // namespace com_tesk::bench
