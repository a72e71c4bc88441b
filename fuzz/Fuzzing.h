#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

/// Runs one input. The fuzzing engine or ReplayMain.cpp calls it. Every target defines it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace com_tesk::fuzz {

using Bytes = std::vector<std::uint8_t>;

/// Aborts the process when `condition` is false. It must be true for every input.
#define CSCLIENT_FUZZ_CHECK(condition) ((condition) ? void() : com_tesk::fuzz::fail(#condition, __FILE__, __LINE__))

[[noreturn]] inline void fail(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
    std::abort();
}

/// An input that is read from its beginning. Bytes after its end read as 0, so that every input is complete.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : next(data), remaining(size) {}

    bool empty() const { return remaining == 0; }

    std::uint8_t byte() {
        if (empty()) {
            return 0;
        }
        --remaining;
        return *next++;
    }

    std::uint32_t word() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8U | byte();
        }
        return value;
    }

    /// Returns the next `count` bytes, or fewer at the end.
    Bytes bytes(std::size_t count) {
        const std::size_t taken = std::min(count, remaining);
        Bytes result(next, next + taken);
        next += taken;
        remaining -= taken;
        return result;
    }

    /// Reads a count of one byte, and returns as many of the next bytes.
    Bytes countedBytes() { return bytes(byte()); }

    Bytes rest() { return bytes(remaining); }

  private:
    const std::uint8_t* next;
    std::size_t remaining;
};

/// Returns the big-endian word at `offset`. The word must be inside `bytes`.
template <typename ByteVector>
std::uint32_t wordAt(const ByteVector& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8U | static_cast<std::uint8_t>(bytes[offset + i]);
    }
    return value;
}

}  // namespace com_tesk::fuzz
