#include "bench/Peer.h"

#include <unistd.h>

#include "bench/Measure.h"
#include "bench/Processes.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kMessages = 5'000;

/// Publishes `kMessages` for each byte that arrives.
void publishOnDemand(const Peer& peer, unsigned int port, int demands) {
    const std::unique_ptr<PeerClient> client = peer.connect(port);
    char demand = 0;
    while (read(demands, &demand, 1) == 1) {
        client->publish(kMessages);
    }
}

Row rowOf(const std::string& name, const std::string& work, const Effort& effort, const std::function<void()>& prepare,
          const std::function<void()>& run) {
    Row row{name, work, "ns/call"};
    std::vector<double> times;
    for (unsigned int i = 0; i < effort.rounds; ++i) {
        prepare();
        const Meter meter;
        run();
        const Usage usage = meter.stop();
        times.push_back(usage.seconds / kMessages * 1e9);
    }
    row.library = median(times);
    return row;
}

std::vector<Row> measure(const Peer& peer, const Effort& effort) {
    const Server server(peer.server);
    // Fork before this process uses the peer's library, which may have threads.
    int demands[2];
    check(pipe(demands) == 0, "pipe");
    const Child publisher([&] { publishOnDemand(peer, server.port(), demands[0]); });

    const std::unique_ptr<PeerClient> client = peer.connect(server.port());
    std::vector<Row> rows;
    rows.push_back(rowOf(
        peer.name + "-publish", peer.name + ": 1 value a publish call", effort, [] {},
        [&] { client->publish(kMessages); }));
    client->subscribe();
    rows.push_back(rowOf(
        peer.name + "-receive", peer.name + ": updates of 1", effort,
        [&] { check(write(demands[1], "x", 1) == 1, "publisher"); }, [&] { client->receive(kMessages); }));
    ::close(demands[0]);
    ::close(demands[1]);
    return rows;
}

}  // namespace

std::vector<Work> workOf(const Peer& peer) {
    if (!isInstalled(peer.server.front())) {
        std::printf("Left out: %s (its server %s is not installed)\n", peer.name.c_str(), peer.server.front().c_str());
        return {};
    }
    return {{{peer.name + "-publish", peer.name + "-receive"},
             [peer](const Effort& effort) { return measure(peer, effort); }}};
}

std::vector<Work> peerWork() {
    std::vector<Work> all;
    const auto add = [&all](const Peer& peer) {
        for (const Work& work : workOf(peer)) {
            all.push_back(work);
        }
    };
#ifdef CSCLIENT_HAS_NATS
    add(natsPeer());
#else
    std::printf("Left out: nats (built without libnats-dev)\n");
#endif
#ifdef CSCLIENT_HAS_MOSQUITTO
    add(mosquittoPeer());
#else
    std::printf("Left out: mosquitto (built without libmosquitto-dev)\n");
#endif
#ifdef CSCLIENT_HAS_REDIS
    add(redisPeer());
#else
    std::printf("Left out: redis (built without libhiredis-dev)\n");
#endif
    static_cast<void>(add);
    return all;
}

}  // namespace com_tesk::bench
