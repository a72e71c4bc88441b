#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bench/Measure.h"

/// The rows of the load program: the library and a bare loop over a POSIX socket that moves exactly the same bytes.

namespace com_tesk::bench {

/// One line of the table. An empty member does not apply, or was not measured.
struct Row {
    std::string name;
    std::string work;
    std::string unit;
    std::optional<double> raw = {};
    std::optional<double> library = {};
    /// `library` divided by `raw`, or the time for one size divided by the time for a tenth of it.
    std::optional<double> ratio = {};
    /// The upper limit of the ratio; without a ratio, of the library's figure.
    std::optional<double> threshold = {};
    /// True when the row must not allocate at all.
    bool mustNotAllocate = false;
    std::optional<double> allocations = {};  ///< The library's, per call.
    std::optional<double> systemCalls = {};  ///< The library's, per call.

    bool isOver() const {
        const std::optional<double>& figure = ratio ? ratio : library;
        return (threshold && figure && *figure > *threshold) || (mustNotAllocate && allocations && *allocations > 0);
    }
};

/// The amount of work to measure.
struct Effort {
    unsigned int rounds = 41;
    /// The divisor of the work of one round.
    unsigned int divisor = 1;
};

/// One or more rows that are measured together.
struct Work {
    std::vector<std::string> names;
    std::function<std::vector<Row>(const Effort&)> measure;
};

std::vector<Work> publishWork();
std::vector<Work> receiveWork();
std::vector<Work> roundTripWork();
std::vector<Work> registrationWork();
std::vector<Work> memoryWork();
std::vector<Work> sessionWork();
/// Also prints which peers are not installed.
std::vector<Work> peerWork();

/// One side of a comparison. `round` runs one round and returns its usage.
struct Side {
    std::function<Usage()> round;
    /// The divisor of the seconds: calls or values.
    double units = 1;
    /// The divisor of the allocations and system calls.
    double calls = 1;
};

/// Measures both sides and fills in the row. Each round runs both sides, and their order alternates between rounds. The
/// figures are medians over the rounds. The ratio is the median of the ratios of the rounds, so that a disturbance
/// which slows down both sides cancels out.
void compare(Row& row, const Effort& effort, const Side& raw, const Side& library);

}  // namespace com_tesk::bench
