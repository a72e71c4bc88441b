#include "bench/Load.h"

namespace com_tesk::bench {

void compare(Row& row, const Effort& effort, const Side& raw, const Side& library) {
    constexpr double kNanoseconds = 1e9;
    std::vector<double> rawTimes;
    std::vector<double> libraryTimes;
    std::vector<double> ratios;
    std::vector<double> allocations;
    std::vector<double> systemCalls;
    raw.round();
    library.round();
    for (unsigned int i = 0; i < effort.rounds; ++i) {
        Usage rawUsage;
        Usage libraryUsage;
        if (i % 2 == 0) {
            rawUsage = raw.round();
            libraryUsage = library.round();
        } else {
            libraryUsage = library.round();
            rawUsage = raw.round();
        }
        rawTimes.push_back(rawUsage.seconds / raw.units * kNanoseconds);
        libraryTimes.push_back(libraryUsage.seconds / library.units * kNanoseconds);
        ratios.push_back(libraryTimes.back() / rawTimes.back());
        allocations.push_back(libraryUsage.allocations / library.calls);
        systemCalls.push_back(libraryUsage.systemCalls / library.calls);
    }
    row.raw = median(rawTimes);
    row.library = median(libraryTimes);
    row.ratio = median(ratios);
    row.allocations = median(allocations);
    row.systemCalls = median(systemCalls);
}

}  // namespace com_tesk::bench
