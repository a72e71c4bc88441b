#include <mosquitto.h>

#include "bench/Peer.h"

namespace com_tesk::bench {

namespace {

/// Deliver at most once, as the other peers do.
constexpr int kQuality = 0;
constexpr int kWait = 1'000;

class MosquittoClient : public PeerClient {
  public:
    explicit MosquittoClient(unsigned int port) {
        mosquitto_lib_init();
        client = mosquitto_new(nullptr, true, this);
        mosquitto_connect_callback_set(client, [](mosquitto*, void* self, int) { of(self).isReady = true; });
        mosquitto_subscribe_callback_set(client,
                                         [](mosquitto*, void* self, int, int, const int*) { of(self).isReady = true; });
        mosquitto_message_callback_set(client,
                                       [](mosquitto*, void* self, const mosquitto_message*) { ++of(self).received; });
        check(mosquitto_connect(client, "127.0.0.1", static_cast<int>(port), 600) == MOSQ_ERR_SUCCESS, "mosquitto");
        waitUntilReady();
    }
    ~MosquittoClient() override { mosquitto_destroy(client); }

    void publish(unsigned int count) override {
        for (unsigned int i = 0; i < count; ++i) {
            check(mosquitto_publish(client, nullptr, "value", sizeof i, &i, kQuality, false) == MOSQ_ERR_SUCCESS,
                  "mosquitto publish");
        }
        while (mosquitto_want_write(client)) {
            mosquitto_loop(client, kWait, 1);
        }
    }

    void subscribe() override {
        isReady = false;
        mosquitto_subscribe(client, nullptr, "value", kQuality);
        waitUntilReady();
    }

    void receive(unsigned int count) override {
        // The server may drop what it cannot deliver at once.
        const double deadline = wallSeconds() + 60;
        for (received = 0; received < count;) {
            check(wallSeconds() < deadline, "mosquitto: some values have not arrived");
            check(mosquitto_loop(client, kWait, 1) == MOSQ_ERR_SUCCESS, "mosquitto receive");
        }
    }

  private:
    static MosquittoClient& of(void* self) { return *static_cast<MosquittoClient*>(self); }

    void waitUntilReady() {
        while (!isReady) {
            check(mosquitto_loop(client, kWait, 1) == MOSQ_ERR_SUCCESS, "mosquitto answer");
        }
    }

    mosquitto* client = nullptr;
    bool isReady = false;
    unsigned int received = 0;
};

}  // namespace

Peer mosquittoPeer() {
    return {"mosquitto", {"mosquitto", "-p", "PORT"}, [](unsigned int port) {
                return std::make_unique<MosquittoClient>(port);
            }};
}

}  // namespace com_tesk::bench
