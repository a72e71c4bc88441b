// Publishing: the library's calls, compared with one write of the same frame.

#include <random>

#include "bench/Frames.h"
#include "bench/HostProcess.h"
#include "bench/Load.h"
#include "bench/RawSocket.h"
#include "bench/ReadyClient.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kRotating = 100;
constexpr unsigned int kAtOnce = 1'000;
/// The number of lists that calls publish in turn. They fit into the caches, as an application's list does after it was
/// filled in.
constexpr unsigned int kOrders = 4;
constexpr unsigned int kCallsOfOne = 5'000;
constexpr unsigned int kCallsOfMany = 100;

/// One publish call: the parameters that the library gets, and the frame that it makes of them.
struct Publication {
    std::vector<CSClient::Parameter> parameters;
    host::Bytes frame;
};

Publication publicationOf(const std::vector<std::uint32_t>& ids) {
    Publication publication;
    for (const std::uint32_t id : ids) {
        publication.parameters.push_back({parameterName(id - 1), {1.0F}, CSClient::TYPE_FLOAT});
    }
    publication.frame = publicationFrame(ids);
    return publication;
}

/// How the host that discards the publications reads them.
enum class Pace {
    STEADY,   ///< It reads while the next publications are sent.
    WAITING,  ///< It sleeps before each call: calls pause long enough for that.
    RARE,     ///< It reads 64 KiB at a time.
};

/// Measures `calls` calls with a pause before each. The time is that of the median call, because the time of the
/// process would consist mostly of the pauses. Without pauses, the slower side finds the host asleep more often, and
/// waking it costs more than everything else.
template <typename Call>
Usage usageWithPauses(unsigned int calls, const Call& call) {
    constexpr double kPause = 30e-6;
    std::vector<double> times;
    times.reserve(calls);
    const Meter meter;
    for (unsigned int i = 0; i < calls; ++i) {
        const double pauseBegin = wallSeconds();
        double begin = pauseBegin;
        while (begin - pauseBegin < kPause) {
            begin = wallSeconds();
        }
        call(i);
        times.push_back(wallSeconds() - begin);
    }
    Usage usage = meter.stop();
    usage.seconds = median(times) * calls;
    return usage;
}

/// Publishes in a cycle, to a host that discards the publications.
Row measureCalls(Row row, const Effort& effort, Transport transport, Pace pace, std::vector<Publication> publications,
                 unsigned int calls) {
    const bool hostReadsRarely = pace == Pace::RARE;
    const HostProcess host({HostTask::DISCARD, 1, hostReadsRarely});
    const HostProcess rawHost({HostTask::DISCARD, 0, hostReadsRarely});
    WaitingCallbacks callbacks;
    const auto client = readyClient(callbacks, host.port(), transport, 0, kAtOnce);
    const RawSocket socket(rawHost.port());

    Side raw;
    raw.calls = calls;
    raw.units = raw.calls * static_cast<double>(publications.front().parameters.size());
    Side library = raw;
    const auto write = [&](unsigned int number) {
        host::Bytes& frame = publications[number % publications.size()].frame;
        putWord(frame.data() + frame.size() - 4, number);
        socket.writeAll(frame.data(), frame.size());
    };
    const auto publish = [&](unsigned int number) {
        std::vector<CSClient::Parameter>& parameters = publications[number % publications.size()].parameters;
        parameters.back().value.asInt = static_cast<std::int32_t>(number);
        client->publishParameters(parameters.data(), static_cast<unsigned int>(parameters.size()));
    };
    const auto repeat = [=](const auto& call) {
        if (pace == Pace::WAITING) {
            return usageWithPauses(calls, call);
        }
        const Meter meter;
        for (unsigned int i = 0; i < calls; ++i) {
            call(i);
        }
        return meter.stop();
    };
    raw.round = [&] { return repeat(write); };
    library.round = [&] { return repeat(publish); };
    compare(row, effort, raw, library);
    return row;
}

Row publishOne(const std::string& name, const std::string& work, double threshold, const Effort& effort,
               Transport transport, Pace pace) {
    Row row{name, work, "ns/call"};
    row.threshold = threshold;
    row.mustNotAllocate = true;
    std::vector<Publication> publications;
    for (std::uint32_t id = 1; id <= kRotating; ++id) {
        publications.push_back(publicationOf({id}));
    }
    return measureCalls(row, effort, transport, pace, std::move(publications), kCallsOfOne / effort.divisor);
}

/// @param lists  the number of lists that calls publish in turn, each in a different order.
Row publishMany(const std::string& name, const std::string& work, double threshold, const Effort& effort,
                unsigned int lists) {
    Row row{name, work, "ns/value"};
    row.threshold = threshold;
    row.mustNotAllocate = true;
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id = 1; id <= kAtOnce; ++id) {
        ids.push_back(id);
    }
    std::mt19937 random(1);  // The same orders in every run, so that runs are comparable.
    std::vector<Publication> publications;
    for (unsigned int i = 0; i < lists; ++i) {
        publications.push_back(publicationOf(ids));
        std::shuffle(ids.begin(), ids.end(), random);
    }
    return measureCalls(row, effort, Transport::STANDARD, Pace::STEADY, std::move(publications),
                        kCallsOfMany / effort.divisor);
}

}  // namespace

std::vector<Work> publishWork() {
    const auto one = [](const char* name, const char* work, double threshold, Transport transport, Pace pace) {
        return Work{{name}, [=](const Effort& effort) {
                        return std::vector<Row>{publishOne(name, work, threshold, effort, transport, pace)};
                    }};
    };
    const auto many = [](const char* name, const char* work, double threshold, unsigned int lists) {
        return Work{{name}, [=](const Effort& effort) {
                        return std::vector<Row>{publishMany(name, work, threshold, effort, lists)};
                    }};
    };
    return {
        one("publish-1", "1 of 100 outputs a call, host reads at once", 1.05, Transport::STANDARD, Pace::WAITING),
        one("publish-1-64k", "the same, host reads 64 KiB", 1.25, Transport::STANDARD, Pace::RARE),
        one("publish-1-64k-buffered", "the same, buffered transport", 1.25, Transport::BUFFERED, Pace::RARE),
        many("publish-1000", "1,000 outputs a call, same list", 4, 1),
        many("publish-1000-orders", "1,000 outputs a call, changing order", 8, kOrders),
    };
}

}  // namespace com_tesk::bench
