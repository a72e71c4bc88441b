// The session, compared with a bare loop that sends the same values, each in a frame of its own or all in one.

#include <malloc.h>
#include <poll.h>

#include <chrono>
#include <thread>

#include "bench/Frames.h"
#include "bench/HostProcess.h"
#include "bench/Load.h"
#include "bench/Names.h"
#include "bench/RawSocket.h"
#include "session/Session.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kRotating = 100;
constexpr unsigned int kAtOnce = 1'000;
constexpr unsigned int kMicroseconds = 1'000'000;
constexpr std::chrono::seconds kPatience{60};

/// A session whose parameters the host has confirmed.
class ReadySession {
  public:
    ReadySession(unsigned int port, unsigned int outputs, unsigned int inputs) : session(optionsFor(port)) {
        std::vector<ParameterHandle> all;
        for (unsigned int i = 0; i < outputs; ++i) {
            out.push_back(session.output<float>(parameterName(i)));
            all.emplace_back(out.back());
        }
        for (unsigned int i = 0; i < inputs; ++i) {
            in.push_back(session.input<float>(parameterName(i)));
            all.emplace_back(in.back());
        }
        session.start();
        check(session.waitConfirmed(all, kPatience), "confirmation of a session");
    }

    Session session;
    std::vector<Output<float>> out;
    std::vector<Input<float>> in;

  private:
    static Session::Options optionsFor(unsigned int port) {
        Session::Options options;
        options.port = static_cast<std::uint16_t>(port);
        options.log = [](Session::Level /*level*/, std::string_view /*text*/) {};
        return options;
    }
};

/// The time that the calling thread spends in `set`, compared with one write for each value.
std::vector<Row> measureSet(const Effort& effort) {
    Row row{"session-set", "set, 100 outputs in turn", "ns/call"};
    row.mustNotAllocate = true;
    const HostProcess rawHost({HostTask::DISCARD});
    const HostProcess host({HostTask::DISCARD, 1});
    ReadySession ready(host.port(), kRotating, 0);
    const RawSocket socket(rawHost.port());
    const host::Bytes frame = publicationFrame({1});
    Side raw;
    const unsigned int calls = 20'000 / effort.divisor;
    raw.calls = raw.units = calls;
    Side library = raw;
    const auto repeat = [calls](const auto& call) {
        const Meter meter;
        const double begin = threadSeconds();
        for (unsigned int i = 0; i < calls; ++i) {
            call(i);
        }
        Usage usage = meter.stop();
        usage.seconds = threadSeconds() - begin;
        return usage;
    };
    raw.round = [&] { return repeat([&](unsigned int /*i*/) { socket.writeAll(frame.data(), frame.size()); }); };
    library.round = [&] {
        return repeat([&](unsigned int i) { ready.out[i % kRotating].set(static_cast<float>(i)); });
    };
    compare(row, effort, raw, library);
    return {row};
}

/// The CPU time of the process for 1,000 values that leave in one frame.
std::vector<Row> measureFlush(const Effort& effort) {
    Row row{"session-flush-1000", "set 1,000 outputs and flush", "ns/value"};
    row.mustNotAllocate = true;
    const HostProcess rawHost({HostTask::DISCARD});
    const HostProcess host({HostTask::DISCARD, 1});
    ReadySession ready(host.port(), kAtOnce, 0);
    const RawSocket socket(rawHost.port());
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id = 1; id <= kAtOnce; ++id) {
        ids.push_back(id);
    }
    const host::Bytes frame = publicationFrame(ids);
    Side raw;
    const unsigned int calls = 100 / effort.divisor;
    raw.calls = calls;
    raw.units = raw.calls * kAtOnce;
    Side library = raw;
    raw.round = [&] {
        const Meter meter;
        for (unsigned int i = 0; i < calls; ++i) {
            socket.writeAll(frame.data(), frame.size());
        }
        return meter.stop();
    };
    library.round = [&] {
        const Meter meter;
        for (unsigned int i = 0; i < calls; ++i) {
            for (const Output<float>& output : ready.out) {
                output.set(static_cast<float>(i));
            }
            ready.session.flush();
        }
        const Usage usage = meter.stop();
        check(ready.session.flush(kPatience), "flush");
        return usage;
    };
    compare(row, effort, raw, library);
    return {row};
}

/// From `set` and `flush` to the host and back into a callback on the same thread.
std::vector<Row> measureLatency(const Effort& effort) {
    const HostProcess rawHost({HostTask::ECHO});
    const HostProcess host({HostTask::ECHO, 2});
    ReadySession ready(host.port(), 1, 1);
    const RawSocket socket(rawHost.port());
    const host::Bytes publication = publicationFrame({1});
    host::Bytes update(publication.size());
    ready.in[0].onChange([](const Reading<float>& /*reading*/) {});
    ready.session.dispatch();  // The value that came with the confirmation.
    pollfd waiting{ready.session.descriptor(), POLLIN, 0};
    const auto trip = [&](unsigned int number) {
        ready.out[0].set(static_cast<float>(number));
        ready.session.flush();
        while (ready.session.dispatch() == 0) {
            poll(&waiting, 1, 1'000);
        }
    };
    std::vector<double> raw[2];
    std::vector<double> library[2];
    constexpr double kShares[] = {0.5, 0.99};
    unsigned int number = 2;
    for (unsigned int round = 0; round < effort.rounds; ++round) {
        std::vector<double> rawTimes;
        std::vector<double> times;
        for (unsigned int i = 0; i < 500 / effort.divisor; ++i) {
            double begin = wallSeconds();
            socket.writeAll(publication.data(), publication.size());
            socket.readAll(update.data(), update.size());
            rawTimes.push_back(wallSeconds() - begin);
            begin = wallSeconds();
            trip(++number);
            times.push_back(wallSeconds() - begin);
        }
        for (unsigned int i = 0; i < 2; ++i) {
            raw[i].push_back(percentile(rawTimes, kShares[i]) * kMicroseconds);
            library[i].push_back(percentile(times, kShares[i]) * kMicroseconds);
        }
    }
    std::vector<Row> rows{{"session-latency-p50", "set to callback in dispatch, p50", "us"},
                          {"session-latency-p99", "set to callback in dispatch, p99", "us"}};
    for (unsigned int i = 0; i < 2; ++i) {
        rows[i].raw = median(raw[i]);
        rows[i].library = median(library[i]);
        rows[i].ratio = *rows[i].library / *rows[i].raw;
    }
    return rows;
}

/// The share of a core for 1,000 outputs at 1 kHz, in percent.
std::vector<Row> measureLoad(const Effort& effort) {
    Row row{"session-load", "CPU at 1,000 outputs x 1 kHz", "% of core"};
    const HostProcess rawHost({HostTask::DISCARD});
    const HostProcess host({HostTask::DISCARD, 1});
    ReadySession ready(host.port(), kAtOnce, 0);
    const RawSocket socket(rawHost.port());
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id = 1; id <= kAtOnce; ++id) {
        ids.push_back(id);
    }
    const host::Bytes frame = publicationFrame(ids);
    const unsigned int ticks = 1'000 / effort.divisor;
    const auto share = [ticks](const auto& tick) {
        const double begin = processSeconds();
        auto next = std::chrono::steady_clock::now();
        for (unsigned int i = 0; i < ticks; ++i) {
            tick(i);
            next += std::chrono::milliseconds(1);
            std::this_thread::sleep_until(next);
        }
        return (processSeconds() - begin) / ticks * 1e3 * 100;
    };
    row.raw = share([&](unsigned int /*i*/) { socket.writeAll(frame.data(), frame.size()); });
    row.library = share([&](unsigned int i) {
        for (const Output<float>& output : ready.out) {
            output.set(static_cast<float>(i));
        }
        ready.session.flush();
    });
    row.ratio = *row.library / *row.raw;
    return {row};
}

std::vector<Row> measureHeap(const Effort& /*effort*/) {
    constexpr unsigned int kParameters = 10'000;
    const auto heapBytes = [] {
        const struct mallinfo2 info = mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    std::vector<Row> rows{{"session-heap-output", "heap of an output, name of 20 characters", "bytes"},
                          {"session-heap-input", "heap of an input, name of 20 characters", "bytes"}};
    for (unsigned int i = 0; i < 2; ++i) {
        const HostProcess host({HostTask::CONFIRM});
        const double before = heapBytes();
        ReadySession ready(host.port(), i == 0 ? kParameters : 0, i == 0 ? 0 : kParameters);
        ready.out = {};
        ready.in = {};
        rows[i].library = (heapBytes() - before) / kParameters;
    }
    return rows;
}

}  // namespace

std::vector<Work> sessionWork() {
    return {
        {{"session-set"}, measureSet},
        {{"session-flush-1000"}, measureFlush},
        {{"session-latency-p50", "session-latency-p99"}, measureLatency},
        {{"session-load"}, measureLoad},
        {{"session-heap-output", "session-heap-input"}, measureHeap},
    };
}

}  // namespace com_tesk::bench
