// Receiving: updates that a callback sums, compared with a loop that makes two reads per frame.

#include "bench/Frames.h"
#include "bench/HostProcess.h"
#include "bench/Load.h"
#include "bench/RawSocket.h"
#include "bench/ReadyClient.h"
#include "bench/Receiver.h"

namespace com_tesk::bench {

namespace {

/// The number of bursts per round. Large updates need many for a round that is long enough.
constexpr unsigned int kBurstsOfMany = 20;
constexpr unsigned int kBurstsOfOne = 4;

Usage receiveRaw(const RawSocket& socket, HostProcess& host, unsigned int bursts, unsigned int valuesPerUpdate,
                 double& sum) {
    const unsigned int updates = host.updatesPerBurst();
    std::vector<std::uint8_t> header(host::layout::kHeaderSize);
    std::vector<std::uint8_t> body(updateFrame(valuesPerUpdate).size() - header.size());
    Usage usage;
    sum = 0;
    for (unsigned int burst = 0; burst < bursts; ++burst) {
        host.sendUpdates(updates);
        Meter meter;
        for (unsigned int i = 0; i < updates; ++i) {
            socket.readAll(header.data(), header.size());
            socket.readAll(body.data(), host::wordFrom(header.data()) - header.size());
            const std::uint8_t* record = body.data() + host::layout::kPublishRecordsOffset;
            for (unsigned int j = 0; j < valuesPerUpdate; ++j, record += host::layout::kValueRecordSize) {
                sum += floatAt(record + host::layout::kValueRecordValue);
            }
            if (i == 0) {
                host.waitUntilSent();
                meter = Meter();
            }
        }
        usage += meter.stop();
    }
    return usage;
}

Row receive(Row row, double threshold, const Effort& effort, Transport transport, unsigned int valuesPerUpdate) {
    row.threshold = threshold;
    row.mustNotAllocate = true;
    HostTask task{HostTask::UPDATE};
    task.valuesPerUpdate = valuesPerUpdate;
    HostProcess rawHost(task);
    task.registrations = 1;
    HostProcess host(task);
    Receiver receiver(host);
    const auto client = readyClient(receiver, host.port(), transport, valuesPerUpdate, 0, kReceiveBuffer);
    const RawSocket socket(rawHost.port(), kReceiveBuffer);

    const unsigned int bursts = (valuesPerUpdate == 1 ? kBurstsOfOne : kBurstsOfMany) / effort.divisor;
    double rawSum = 0;
    Side raw;
    raw.calls = bursts * (host.updatesPerBurst() - 1);  // The first update of each burst starts the measurement.
    raw.units = raw.calls * valuesPerUpdate;
    Side library = raw;
    raw.round = [&] { return receiveRaw(socket, rawHost, bursts, valuesPerUpdate, rawSum); };
    library.round = [&] { return receiver.receive(bursts); };
    compare(row, effort, raw, library);
    check(receiver.sum == rawSum, "the two sides received different values");
    return row;
}

}  // namespace

std::vector<Work> receiveWork() {
    const auto work = [](const char* name, const char* text, double threshold, Transport transport,
                         unsigned int values) {
        return Work{{name}, [=](const Effort& effort) {
                        const char* const unit = values == 1 ? "ns/update" : "ns/value";
                        return std::vector<Row>{receive({name, text, unit}, threshold, effort, transport, values)};
                    }};
    };
    return {
        work("receive-1000", "updates of 1,000, summed by a callback", 4, Transport::STANDARD, 1'000),
        work("receive-1000-buffered", "the same, buffered transport", 4, Transport::BUFFERED, 1'000),
        work("receive-1", "updates of 1, two reads a frame", 1.25, Transport::STANDARD, 1),
        work("receive-1-buffered", "the same, buffered transport", 1.1, Transport::BUFFERED, 1),
    };
}

}  // namespace com_tesk::bench
