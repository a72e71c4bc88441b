#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace com_tesk::session {

/// A record that one thread writes and any thread reads. Neither waits for a lock. A read that overlaps a write is
/// repeated. The end of a write and the begin of a read are sequentially consistent: of a thread that writes and then
/// reads a flag, and one that sets the flag and then reads the record, at least one sees what the other did.
template <typename Record>
class SeqLock {
    static_assert(std::is_trivially_copyable_v<Record>);

  public:
    /// One thread at a time.
    void write(const Record& record) {
        Words source{};
        std::memcpy(source.data(), static_cast<const void*>(&record), sizeof record);
        // Odd: a write is in progress.
        const std::uint32_t before = sequence.load(std::memory_order_relaxed);
        sequence.store(before + 1, std::memory_order_relaxed);
        for (std::size_t i = 0; i < kWords; ++i) {
            // Release: a reader that sees the word also sees the odd number.
            words[i].store(source[i], std::memory_order_release);
        }
        sequence.store(before + 2, std::memory_order_seq_cst);
    }

    /// Any thread.
    Record read() const {
        Words copy{};
        std::uint32_t before = 0;
        std::uint32_t after = 0;
        do {
            before = sequence.load(std::memory_order_seq_cst);
            for (std::size_t i = 0; i < kWords; ++i) {
                copy[i] = words[i].load(std::memory_order_acquire);
            }
            after = sequence.load(std::memory_order_relaxed);
        } while (before != after || (before & 1U) != 0);
        Record record;
        std::memcpy(static_cast<void*>(&record), copy.data(), sizeof record);
        return record;
    }

  private:
    static constexpr std::size_t kWords = (sizeof(Record) + sizeof(std::uint32_t) - 1) / sizeof(std::uint32_t);
    using Words = std::array<std::uint32_t, kWords>;

    std::atomic<std::uint32_t> sequence{0};
    std::array<std::atomic<std::uint32_t>, kWords> words{};
};

}  // namespace com_tesk::session
