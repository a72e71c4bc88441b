#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace com_tesk::service {

/// Limits log lines that can repeat without end: one line an interval for each key. It counts the others.
///
/// Not for several threads at once: `Log` has a lock around it. Keeps at most `maxKeys` keys; further ones share one
/// limit, so that names that a peer invents take no memory.
class LineLimit {
  public:
    using Clock = std::chrono::steady_clock;

    explicit LineLimit(std::chrono::milliseconds limitInterval = std::chrono::minutes(1), std::size_t keyLimit = 1'000)
        : interval(limitInterval), maxKeys(keyLimit) {}

    /// Decides about one line. Returns nothing when the line is to be left out. Otherwise it returns how many lines
    /// with this key were left out since the last one that was not.
    std::optional<std::uint64_t> admit(const std::string& key, Clock::time_point now = Clock::now());

  private:
    struct Key {
        Clock::time_point admitted;
        std::uint64_t suppressed = 0;
    };

    std::optional<std::uint64_t> admitAgain(Key& key, Clock::time_point now) const;
    void eraseExpired(Clock::time_point now);

    const std::chrono::milliseconds interval;
    const std::size_t maxKeys;
    std::map<std::string, Key> keys;
    std::optional<Key> further;  // All keys that have found no space in `keys`.
};

}  // namespace com_tesk::service
