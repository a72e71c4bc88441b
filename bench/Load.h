#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bench/Measure.h"

/// The load program's rows: the library beside a bare loop over a POSIX socket that moves exactly the same bytes.

namespace com_tesk::bench {

/// One line of the table. What is not there does not apply, or was not measured.
struct Row {
    std::string name;
    std::string work;
    std::string unit;
    std::optional<double> raw = {};
    std::optional<double> library = {};
    /// Of `library` to `raw`, or of one size to the tenth of it.
    std::optional<double> ratio = {};
    /// For the ratio; where there is none, for the library's figure.
    std::optional<double> bar = {};
    /// Whether any allocation is above the bar.
    bool mustNotAllocate = false;
    std::optional<double> allocations = {};  ///< The library's, per call.
    std::optional<double> systemCalls = {};  ///< The library's, per call.

    bool isOver() const {
        const std::optional<double>& figure = ratio ? ratio : library;
        return (bar && figure && *figure > *bar) || (mustNotAllocate && allocations && *allocations > 0);
    }
};

/// How much is measured.
struct Effort {
    unsigned int rounds = 41;
    /// Divides what one round does.
    unsigned int divisor = 1;
};

/// One or several rows that are measured together.
struct Work {
    std::vector<std::string> names;
    std::function<std::vector<Row>(const Effort&)> measure;
};

std::vector<Work> publishWork();
std::vector<Work> receiveWork();
std::vector<Work> roundTripWork();
std::vector<Work> registrationWork();
std::vector<Work> memoryWork();
/// Says which peers are not installed.
std::vector<Work> peerWork();

/// One round's usage of `units` calls or values, on either side.
struct Side {
    std::function<Usage()> round;
    /// What the seconds are divided by.
    double units = 1;
    /// What allocations and system calls are divided by.
    double calls = 1;
};

/// Fills a row in: the sides take turns, first one and then the other first, and the figures are medians over the
/// rounds. The ratio is the median of each round's own, so that what slows both down cancels out.
void compare(Row& row, const Effort& effort, const Side& raw, const Side& library);

}  // namespace com_tesk::bench
