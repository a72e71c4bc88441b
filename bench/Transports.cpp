// Compares the two transports in one run: reads and CPU time per received update, and the cost of a publish.

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/HostProcess.h"
#include "bench/Measure.h"
#include "bench/ReadyClient.h"
#include "bench/Receiver.h"

namespace com_tesk::bench {
namespace {

constexpr unsigned int kPublishesPerRound = 100'000;
constexpr unsigned int kBurstsPerRound = 40;

/// The figures of one round, by name.
using Figures = std::vector<std::pair<std::string, double>>;

constexpr double kMicroseconds = 1e6;

Figures receiveRound(Transport transport, unsigned int valuesPerUpdate) {
    HostTask task{HostTask::UPDATE, 1};
    task.valuesPerUpdate = valuesPerUpdate;
    HostProcess host(task);
    Receiver receiver(host);
    const auto client = readyClient(receiver, host.port(), transport, valuesPerUpdate, 0, kReceiveBuffer);
    const Usage usage = receiver.receive(kBurstsPerRound);
    // The first update of each burst is not measured.
    const unsigned int updates = kBurstsPerRound * (host.updatesPerBurst() - 1);
    const std::string what = " per update of " + std::to_string(valuesPerUpdate);
    return {{"reads" + what, usage.systemCalls / updates},
            {"CPU" + what + ", us", usage.seconds / updates * kMicroseconds}};
}

Figures publishRound(Transport transport) {
    const HostProcess host({HostTask::DISCARD, 1});
    WaitingCallbacks callbacks;
    const auto client = readyClient(callbacks, host.port(), transport, 0, 1);
    std::vector<double> times(kPublishesPerRound);
    const CSClient::Parameter parameter{parameterName(0), {1.0F}, CSClient::TYPE_FLOAT};
    const unsigned long writes = countedWrites();
    const double cpu = threadSeconds();
    for (double& time : times) {
        const double before = wallSeconds();
        client->publishParameter(parameter);
        time = wallSeconds() - before;
    }
    const double cpuPerCall = (threadSeconds() - cpu) / kPublishesPerRound;
    const double writesPerCall = static_cast<double>(countedWrites() - writes) / kPublishesPerRound;
    return {{"writes per publish call", writesPerCall},
            {"CPU per publish call, us", cpuPerCall * kMicroseconds},
            {"publish call, p50, us", percentile(times, 0.5) * kMicroseconds},
            {"publish call, p99, us", percentile(times, 0.99) * kMicroseconds}};
}

/// Prints the medians over the rounds. The two transports alternate in each round.
template <typename Round>
void compare(unsigned int rounds, const Round& round) {
    std::vector<Figures> standard;
    std::vector<Figures> buffered;
    for (unsigned int i = 0; i < rounds; ++i) {
        standard.push_back(round(Transport::STANDARD));
        buffered.push_back(round(Transport::BUFFERED));
    }
    for (std::size_t figure = 0; figure < standard.front().size(); ++figure) {
        std::vector<double> before;
        std::vector<double> after;
        std::vector<double> ratios;
        for (unsigned int i = 0; i < rounds; ++i) {
            before.push_back(standard[i][figure].second);
            after.push_back(buffered[i][figure].second);
            ratios.push_back(after.back() / before.back());
        }
        std::printf("%-40s %10.3f %10.3f %8.3f\n", standard.front()[figure].first.c_str(), median(before),
                    median(after), median(ratios));
    }
    std::fflush(stdout);
}

}  // namespace
}  // namespace com_tesk::bench

int main(int argc, char** argv) {
    using namespace com_tesk::bench;
    const std::size_t length = argc == 2 ? std::strlen(argv[1]) : 0;
    const bool isNumber = length > 0 && length <= 4 && std::strspn(argv[1], "0123456789") == length;
    const auto rounds = argc == 1 ? 5U : isNumber ? static_cast<unsigned int>(std::strtoul(argv[1], nullptr, 10)) : 0U;
    if (rounds == 0) {
        std::fprintf(stderr, "Syntax: %s [ROUNDS]\n", argv[0]);
        return 1;
    }
    std::printf("%-40s %10s %10s %8s   medians of %u rounds\n", "", "standard", "buffered", "ratio", rounds);
    compare(rounds, [](Transport transport) { return receiveRound(transport, 1); });
    compare(rounds, [](Transport transport) { return receiveRound(transport, 1'000); });
    compare(rounds, publishRound);
}
