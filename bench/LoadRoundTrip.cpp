// Round trips: publish, host, update, callback, and from the callback the next publish. Compared with a raw ping-pong.

#include "bench/Frames.h"
#include "bench/HostProcess.h"
#include "bench/Load.h"
#include "bench/RawSocket.h"
#include "bench/ReadyClient.h"

namespace com_tesk::bench {

namespace {

/// How often the sides alternate within a round, so that disturbances affect both sides alike.
constexpr unsigned int kTurns = 10;
constexpr unsigned int kTripsPerTurn = 500;
/// The number of first trips of a turn that do not count. The other side has just used the processors, and both threads
/// are asleep.
constexpr unsigned int kWarmUp = 20;

class Player : public WaitingCallbacks {
  public:
    void play(CSClient& newClient, unsigned int trips, std::vector<double>& newTimes) {
        client = &newClient;
        times = &newTimes;
        isOver = false;
        tripsThatCount = trips;
        tripsLeft = kWarmUp + trips;
        publish();
        waitUntil([this] { return isOver; });
    }

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override {
        if (tripsLeft == 0) {
            return;  // This is the value that comes with the confirmation.
        }
        if (tripsLeft <= tripsThatCount) {
            times->push_back(wallSeconds() - begin);
        }
        --tripsLeft;
        if (tripsLeft > 0) {
            publish();
        } else {
            apply([this] { isOver = true; });
        }
    }

  private:
    void publish() {
        begin = wallSeconds();
        client->publishParameter(parameter);
    }

    CSClient* client = nullptr;
    std::vector<double>* times = nullptr;
    CSClient::Parameter parameter{parameterName(0), {1.0F}, CSClient::TYPE_FLOAT};
    double begin = 0;
    unsigned int tripsThatCount = 0;
    std::atomic<unsigned int> tripsLeft{0};
    bool isOver = false;
};

void playRaw(const RawSocket& socket, unsigned int trips, bool hasTwoReads, std::vector<double>& times) {
    const host::Bytes publication = publicationFrame({1});
    host::Bytes update(publication.size());
    for (unsigned int i = 0; i < kWarmUp + trips; ++i) {
        const double begin = wallSeconds();
        socket.writeAll(publication.data(), publication.size());
        const std::size_t first = hasTwoReads ? host::layout::kHeaderSize : update.size();
        socket.readAll(update.data(), first);
        socket.readAll(update.data() + first, update.size() - first);
        if (i >= kWarmUp) {
            times.push_back(wallSeconds() - begin);
        }
    }
}

std::vector<Row> roundTrips(const std::string& name, const std::string& work, const Effort& effort,
                            Transport transport) {
    const HostProcess rawHost({HostTask::ECHO});
    const HostProcess host({HostTask::ECHO, 2});
    Player player;
    const auto client = readyClient(player, host.port(), transport, 1, 1);
    const RawSocket socket(rawHost.port());

    std::vector<double> raw[2];
    std::vector<double> library[2];
    std::vector<double> ratios[2];
    constexpr double kShares[] = {0.5, 0.99};
    constexpr double kMicroseconds = 1e6;
    for (unsigned int round = 0; round < effort.rounds; ++round) {
        std::vector<double> rawTimes;
        std::vector<double> libraryTimes;
        for (unsigned int turn = 0; turn < kTurns; ++turn) {
            const unsigned int trips = kTripsPerTurn / effort.divisor;
            playRaw(socket, trips, transport == Transport::STANDARD, rawTimes);
            player.play(*client, trips, libraryTimes);
        }
        for (unsigned int i = 0; i < 2; ++i) {
            raw[i].push_back(percentile(rawTimes, kShares[i]) * kMicroseconds);
            library[i].push_back(percentile(libraryTimes, kShares[i]) * kMicroseconds);
            ratios[i].push_back(library[i].back() / raw[i].back());
        }
    }
    std::vector<Row> rows{{name + "-p50", work + ", p50", "us"}, {name + "-p99", work + ", p99", "us"}};
    for (unsigned int i = 0; i < 2; ++i) {
        rows[i].raw = median(raw[i]);
        rows[i].library = median(library[i]);
        rows[i].ratio = median(ratios[i]);
        rows[i].threshold = 1.05;
    }
    return rows;
}

}  // namespace

std::vector<Work> roundTripWork() {
    const auto work = [](const std::string& name, const char* text, Transport transport) {
        return Work{{name + "-p50", name + "-p99"},
                    [=](const Effort& effort) { return roundTrips(name, text, effort, transport); }};
    };
    return {
        work("round-trip", "publish to callback", Transport::STANDARD),
        work("round-trip-buffered", "the same, buffered transport", Transport::BUFFERED),
    };
}

}  // namespace com_tesk::bench
