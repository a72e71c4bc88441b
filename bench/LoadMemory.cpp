// Measures the heap that registered parameters use.

#include <malloc.h>

#include "bench/HostProcess.h"
#include "bench/Load.h"
#include "bench/ReadyClient.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kOutputs = 10'000;

double heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

std::vector<Row> heapPerOutput(const Effort& /*effort*/) {
    Row row{"heap-output", "heap of an output, name of 20 characters", "bytes"};
    row.threshold = 220;
    const HostProcess host({HostTask::CONFIRM});
    WaitingCallbacks callbacks;
    std::vector<CSClient::OutputDef> definitions = outputDefinitions(kOutputs + 2);
    // One parameter before the measurement, so that the connection is established. One after it, so that the buffers of
    // the large messages are no longer in use.
    const auto client = readyClient(callbacks, host.port(), Transport::BUFFERED, 0, 1);
    const double before = heapBytes();
    client->registerOutputParameters(&definitions[1], kOutputs);
    callbacks.waitForConfirmations(0, 1 + kOutputs);
    client->registerOutputParameter(definitions.back());
    callbacks.waitForConfirmations(0, definitions.size());
    row.library = (heapBytes() - before) / (kOutputs + 1);
    return {row};
}

}  // namespace

std::vector<Work> memoryWork() {
    return {{{"heap-output"}, heapPerOutput}};
}

}  // namespace com_tesk::bench
