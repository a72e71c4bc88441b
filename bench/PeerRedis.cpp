#include <hiredis/hiredis.h>

#include "bench/Peer.h"

namespace com_tesk::bench {

namespace {

class RedisClient : public PeerClient {
  public:
    explicit RedisClient(unsigned int port) : context(redisConnect("127.0.0.1", static_cast<int>(port))) {
        check(context != nullptr && context->err == 0, "redis");
    }
    ~RedisClient() override { redisFree(context); }

    void publish(unsigned int count) override {
        if (!isQuiet) {  // Without replies: publishing is one-way, as with the other peers.
            isQuiet = true;
            redisAppendCommand(context, "CLIENT REPLY OFF");
        }
        for (unsigned int i = 0; i < count; ++i) {
            redisAppendCommand(context, "PUBLISH value %b", &i, sizeof i);
            int isDone = 0;
            while (isDone == 0) {
                check(redisBufferWrite(context, &isDone) == REDIS_OK, "redis publish");
            }
        }
    }

    void subscribe() override {
        if (isQuiet) {
            redisAppendCommand(context, "CLIENT REPLY ON");
            takeReply();
        }
        redisAppendCommand(context, "SUBSCRIBE value");
        takeReply();
    }

    void receive(unsigned int count) override {
        for (unsigned int i = 0; i < count; ++i) {
            takeReply();
        }
    }

  private:
    void takeReply() {
        void* reply = nullptr;
        check(redisGetReply(context, &reply) == REDIS_OK, "redis reply");
        freeReplyObject(reply);
    }

    redisContext* const context;
    bool isQuiet = false;
};

}  // namespace

Peer redisPeer() {
    return {"redis",
            {"redis-server", "--port", "PORT", "--bind", "127.0.0.1", "--save", "", "--appendonly", "no"},
            [](unsigned int port) { return std::make_unique<RedisClient>(port); }};
}

}  // namespace com_tesk::bench
