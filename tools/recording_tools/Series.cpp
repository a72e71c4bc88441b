#include "tools/recording_tools/Series.h"

#include <algorithm>

namespace com_tesk::recording {

std::size_t MedianInterval::classOf(std::uint64_t micros) {
    constexpr std::uint64_t kDirect = 1U << kClassBits;
    unsigned shift = 0;
    while ((micros >> shift) >= 2 * kDirect) {
        ++shift;
    }
    return (std::size_t{shift} << kClassBits) + static_cast<std::size_t>(micros >> shift);
}

std::uint64_t MedianInterval::upperEnd(std::size_t index) {
    constexpr std::size_t kDirect = 1U << kClassBits;
    if (index < 2 * kDirect) {
        return index;
    }
    const std::size_t shift = (index >> kClassBits) - 1;
    return ((std::uint64_t{index} - (shift << kClassBits) + 1) << shift) - 1;
}

void MedianInterval::add(Time time) {
    if (last) {
        ++counts.at(classOf(static_cast<std::uint64_t>((time - *last).count())));
        ++total;
    }
    last = time;
}

std::optional<Time> MedianInterval::median() const {
    std::uint64_t counted = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        counted += counts.at(i);
        if (total != 0 && counted >= (total + 1) / 2) {
            return Time(static_cast<Time::rep>(upperEnd(i)));
        }
    }
    return std::nullopt;
}

void Spans::add(Time begin, Time end) {
    if (!spans.empty() && begin - spans.back().second < resolution) {
        spans.back().second = std::max(spans.back().second, end);
    } else {
        spans.emplace_back(begin, end);
    }
}

void Envelope::add(Time time, double value) {
    const Point point{time, value};
    const Time::rep number = time / partWidth;
    if (parts.empty() || parts.back().number != number) {
        parts.push_back({number, point, point, point, point});
        return;
    }
    Part& part = parts.back();
    part.last = point;
    if (value < part.least.second) {
        part.least = point;
    }
    if (value > part.largest.second) {
        part.largest = point;
    }
}

std::vector<Envelope::Point> Envelope::points() const {
    std::vector<Point> all;
    for (const Part& part : parts) {
        std::array<Point, 2> middle{part.least, part.largest};
        if (middle[1].first < middle[0].first) {
            std::swap(middle[0], middle[1]);
        }
        for (const Point& point : {part.first, middle[0], middle[1], part.last}) {
            if (all.empty() || all.back() != point) {
                all.push_back(point);
            }
        }
    }
    return all;
}

}  // namespace com_tesk::recording
