// Registering many names in one call: the growth of the time with their number.

#include <malloc.h>

#include <chrono>
#include <thread>

#include "bench/HostProcess.h"
#include "bench/Load.h"
#include "bench/ReadyClient.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kSizes[] = {1'000, 10'000, 100'000};
constexpr unsigned int kSizeCount = 3;
constexpr double kLargestGrowth = 13;
constexpr double kMaxMilliseconds = 150;
constexpr unsigned int kMaxRounds = 5;

enum Operation { REGISTER, UNREGISTER, REREGISTER, OPERATIONS };
const char* const kOperationNames[] = {"register", "unregister", "reregister"};

void waitUntil(const std::function<bool()>& condition) {
    for (unsigned int i = 0; !condition(); ++i) {
        check(i < 60'000, "the host does not confirm");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// The engine itself, because the client has no operation that re-registers.
class Engine : public SimulatorProtocol {
  public:
    explicit Engine(unsigned int port) : SimulatorProtocol(1, CSClient::OPTION_SILENT) {
        changeCommsInterface(new CSCommsInterfaceTCPBuffered);
        openConnection(CSCommsInterfaceTCP::convertIPAddressToOctet("127.0.0.1"), port, nullptr);
        waitUntil([this] { return getState() == CSClient::STATE_READY; });
    }
    ~Engine() override {
        forceCloseConnection();
        waitUntil([this] { return getState() == CSClient::STATE_DISCONNECTED; });
    }
};

/// CPU time of the calling thread only: the worker handles the confirmations at the same time.
template <typename Call>
double millisecondsOf(const Call& call) {
    const double begin = threadSeconds();
    call();
    return (threadSeconds() - begin) * 1e3;
}

struct Times {
    double byOperation[OPERATIONS] = {};
};

Times timesOfOutputs(Engine& engine, unsigned int count) {
    const std::vector<CSClient::OutputDef> definitions = outputDefinitions(count);
    const std::vector<std::string> names = namesOf(definitions);
    Times times;
    times.byOperation[REGISTER] = millisecondsOf([&] { engine.registerOutputParameters(definitions.data(), count); });
    waitUntil([&] { return engine.getNumberOfOutputParametersWaitingForConfirmation() <= 0; });
    times.byOperation[REREGISTER] = millisecondsOf([&] { engine.reregisterAllOutputParameters(); });
    times.byOperation[UNREGISTER] = millisecondsOf([&] { engine.unregisterOutputParameters(names); });
    return times;
}

Times timesOfInputs(Engine& engine, unsigned int count) {
    const std::vector<CSClient::InputDef> definitions = inputDefinitions(count);
    const std::vector<std::string> names = namesOf(definitions);
    Times times;
    times.byOperation[REGISTER] = millisecondsOf([&] { engine.registerInputParameters(definitions.data(), count); });
    waitUntil([&] { return engine.getNumberOfInputParametersWaitingForConfirmation() <= 0; });
    times.byOperation[REREGISTER] = millisecondsOf([&] { engine.reregisterAllInputParameters(); });
    waitUntil([&] { return engine.getNumberOfInputParametersWaitingForConfirmation() <= 0; });
    times.byOperation[UNREGISTER] = millisecondsOf([&] { engine.unregisterInputParameters(names); });
    return times;
}

/// The median over `repetitions`, chosen so that every size registers about as many names.
template <typename Once>
Times medianTimes(unsigned int repetitions, const Once& once) {
    std::vector<double> all[OPERATIONS];
    for (unsigned int i = 0; i < repetitions; ++i) {
        const Times times = once();
        for (unsigned int operation = 0; operation < OPERATIONS; ++operation) {
            all[operation].push_back(times.byOperation[operation]);
        }
    }
    Times medians;
    for (unsigned int operation = 0; operation < OPERATIONS; ++operation) {
        medians.byOperation[operation] = median(all[operation]);
    }
    return medians;
}

std::string rowName(unsigned int operation, const char* kind, unsigned int size) {
    return std::string(kOperationNames[operation]) + "-" + kind + "-" + std::to_string(kSizes[size]);
}

template <typename Measure>
std::vector<Row> registrations(const char* kind, const Effort& effort, const Measure& measure) {
    std::vector<double> times[OPERATIONS][kSizeCount];
    std::vector<double> growths[OPERATIONS][kSizeCount];
    const HostProcess host({HostTask::CONFIRM});
    const unsigned int rounds = effort.divisor > 1 ? 3 : std::min(effort.rounds, kMaxRounds);
    for (unsigned int round = 0; round < rounds; ++round) {
        double before[OPERATIONS] = {};
        for (unsigned int size = 0; size < kSizeCount; ++size) {
            const unsigned int repetitions = size == 0 ? 9 : size == 1 ? 3 : 1;
            const Times medians = medianTimes(repetitions, [&] {
                // Each repetition starts with a new engine and a trimmed heap, so that small numbers do not profit from
                // memory that earlier repetitions have left.
                malloc_trim(0);
                Engine engine(host.port());
                return measure(engine, kSizes[size]);
            });
            for (unsigned int operation = 0; operation < OPERATIONS; ++operation) {
                const double time = medians.byOperation[operation];
                times[operation][size].push_back(time);
                growths[operation][size].push_back(time / before[operation]);
                before[operation] = time;
            }
        }
    }
    std::vector<Row> rows;
    for (unsigned int operation = 0; operation < OPERATIONS; ++operation) {
        for (unsigned int size = 0; size < kSizeCount; ++size) {
            Row row{rowName(operation, kind, size),
                    std::string(kOperationNames[operation]) + " " + std::to_string(kSizes[size]) + " " + kind, "ms"};
            row.library = median(times[operation][size]);
            if (size > 0) {
                // The growth is relative to the time for a tenth of the names.
                row.raw = rows.back().library;
                row.ratio = median(growths[operation][size]);
                row.threshold = kLargestGrowth;
            }
            rows.push_back(row);
        }
        Row whole{rowName(operation, kind, kSizeCount - 1) + "-ms", "the same, in all", "ms"};
        whole.library = rows.back().library;
        whole.threshold = kMaxMilliseconds;
        rows.push_back(whole);
    }
    return rows;
}

std::vector<std::string> rowNames(const char* kind) {
    std::vector<std::string> names;
    for (unsigned int operation = 0; operation < OPERATIONS; ++operation) {
        for (unsigned int size = 0; size < kSizeCount; ++size) {
            names.push_back(rowName(operation, kind, size));
        }
        names.push_back(names.back() + "-ms");
    }
    return names;
}

}  // namespace

std::vector<Work> registrationWork() {
    return {
        {rowNames("outputs"), [](const Effort& effort) { return registrations("outputs", effort, timesOfOutputs); }},
        {rowNames("inputs"), [](const Effort& effort) { return registrations("inputs", effort, timesOfInputs); }},
    };
}

}  // namespace com_tesk::bench
