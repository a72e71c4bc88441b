// Measures the memory and threads of a client from inside its process. scripts/footprint runs this, on this machine and
// under an emulator, against a cshost that listens on PORT.
//
//   bench_footprint PORT heap        prints "name figure" lines
//   bench_footprint PORT idle COUNT  starts a client with COUNT parameters, half of them inputs, and leaves it idle.
//                                    COUNT "none": no client. Prints "idle BYTES", the heap in use, then waits until its
//                                    standard input ends, so that scripts/footprint can read its memory map.

#include <dirent.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/HeapInUse.h"
#include "bench/ReadyClient.h"

namespace com_tesk::bench {
namespace {

constexpr unsigned int kMany = 10'000;
constexpr unsigned int kBatch = 1'000;
constexpr unsigned int kWarmUp = 20;
constexpr unsigned int kRounds = 200;

/// Counts the values that arrive.
class ArrivalCallbacks : public WaitingCallbacks {
  public:
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& values) override {
        apply([this, &values] { arrived += values.size(); });
    }

    void waitForValues(std::size_t count) {
        waitUntil([this, count] { return arrived >= count; });
    }

  private:
    std::size_t arrived = 0;
};

unsigned int threadCount() {
    DIR* const directory = opendir("/proc/self/task");
    check(directory != nullptr, "/proc/self/task");
    unsigned int count = 0;
    while (const dirent* const entry = readdir(directory)) {
        count += entry->d_name[0] == '.' ? 0 : 1;
    }
    closedir(directory);
    return count;
}

/// Returns the heap in use once it has been unchanged for half a second. The wait is needed because the client is still
/// handling a confirmation when its callback runs.
std::size_t settledHeap() {
    constexpr timespec kPause{0, 50'000'000};
    std::size_t heap = heapInUse();
    for (int unchanged = 0; unchanged < 10; ++unchanged) {
        nanosleep(&kPause, nullptr);
        const std::size_t now = heapInUse();
        if (now != heap) {
            heap = now;
            unchanged = 0;
        }
    }
    return heap;
}

/// Measures the heap of one of many registered and confirmed parameters. One parameter is registered before the
/// measurement, so that the connection is established. One is registered after the others, so that the buffers of the
/// large messages are no longer in use.
void measureInputs(unsigned int port) {
    WaitingCallbacks callbacks;
    const auto definitions = inputDefinitions(kMany + 2);
    const auto client = readyClient(callbacks, port, Transport::BUFFERED, 1, 0);
    const std::size_t before = settledHeap();
    client->registerInputParameters(&definitions[1], kMany);
    callbacks.waitForConfirmations(1 + kMany, 0);
    client->registerInputParameter(definitions.back());
    callbacks.waitForConfirmations(definitions.size(), 0);
    std::printf("heap-input %.1f\n", static_cast<double>(settledHeap() - before) / (kMany + 1));
    client->close();
}

void measureOutputs(unsigned int port) {
    WaitingCallbacks callbacks;
    const auto definitions = outputDefinitions(kMany + 2);
    const auto client = readyClient(callbacks, port, Transport::BUFFERED, 0, 1);
    const std::size_t before = settledHeap();
    client->registerOutputParameters(&definitions[1], kMany);
    callbacks.waitForConfirmations(0, 1 + kMany);
    client->registerOutputParameter(definitions.back());
    callbacks.waitForConfirmations(0, definitions.size());
    std::printf("heap-output %.1f\n", static_cast<double>(settledHeap() - before) / (kMany + 1));
    client->close();
}

void measureThreads(unsigned int port) {
    const unsigned int before = threadCount();
    WaitingCallbacks callbacks;
    const auto client = readyClient(callbacks, port, Transport::BUFFERED, 0, 1);
    std::printf("threads %u\n", threadCount() - before);
    client->close();
}

/// Returns the allocations of all threads in one round of publishing `count` values. When the client has subscribed to
/// them, a round lasts until their update has arrived.
double allocationsPerRound(unsigned int port, unsigned int count, bool isSubscribed) {
    ArrivalCallbacks callbacks;
    const auto client = readyClient(callbacks, port, Transport::BUFFERED, isSubscribed ? count : 0, count);
    const auto values = parameters(0, count);
    unsigned long before = 0;
    for (unsigned int round = 0; round < kWarmUp + kRounds; ++round) {
        if (round == kWarmUp) {
            before = allocationsSoFar();
        }
        check(client->publishParameters(values) == 0, "publish");
        if (isSubscribed) {
            callbacks.waitForValues(std::size_t{round + 1} * count);
        }
    }
    const unsigned long after = allocationsSoFar();
    client->close();
    return static_cast<double>(after - before) / kRounds;
}

void measureAllocations(unsigned int port) {
    for (const unsigned int count : {1U, kBatch}) {
        const double publish = allocationsPerRound(port, count, false);
        const double both = allocationsPerRound(port, count, true);
        std::printf("allocations-publish-%u %.2f\nallocations-update-%u %.2f\n", count, publish, count, both - publish);
    }
}

void stayIdle(unsigned int port, const std::string& count) {
    WaitingCallbacks callbacks;
    std::unique_ptr<SimClient> client;
    if (count != "none") {
        const auto number = static_cast<unsigned int>(std::strtoul(count.c_str(), nullptr, 10));
        const unsigned int inputs = number / 2;
        const unsigned int outputs = number - inputs;
        // One after the other, so that the buffers that remain do not depend on which messages arrive together.
        client = readyClient(callbacks, port, Transport::BUFFERED, 0, 0);
        check(client->waitForConnectionState(CSClient::STATE_READY, 10), "connection");
        client->registerInputParameters(inputDefinitions(inputs));
        callbacks.waitForConfirmations(inputs, 0);
        client->registerOutputParameters(outputDefinitions(outputs));
        callbacks.waitForConfirmations(inputs, outputs);
    }
    std::printf("idle %zu\n", settledHeap());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    if (client) {
        client->close();
    }
}

int run(int argc, char** argv) {
    const std::string what = argc > 2 ? argv[2] : "";
    if ((what != "heap" || argc != 3) && (what != "idle" || argc != 4)) {
        std::fprintf(stderr, "Syntax: %s PORT (heap | idle COUNT | idle none)\n", argv[0]);
        return 1;
    }
    const auto port = static_cast<unsigned int>(std::strtoul(argv[1], nullptr, 10));
    if (what == "idle") {
        stayIdle(port, argv[3]);
        return 0;
    }
    measureThreads(port);
    measureInputs(port);
    measureOutputs(port);
    measureAllocations(port);
    return 0;
}

}  // namespace
}  // namespace com_tesk::bench

int main(int argc, char** argv) {
    return com_tesk::bench::run(argc, argv);
}
