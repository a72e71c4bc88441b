#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

/// Called by the fuzzing engine, or by ReplayMain.cpp, once per input. Every target defines it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace com_tesk {
namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

/// Ends the process when something that holds for every input does not hold for this one.
#define FUZZ_CHECK(condition) ((condition) ? void() : com_tesk::fuzz::fail(#condition, __FILE__, __LINE__))

[[noreturn]] inline void fail(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

/// An input, taken from the front. What is no longer there reads as 0, so that every input is a whole one.
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

    /// At most `count` bytes.
    Bytes bytes(std::size_t count) {
        const std::size_t taken = std::min(count, remaining);
        Bytes result(next, next + taken);
        next += taken;
        remaining -= taken;
        return result;
    }

    /// A count in one byte, and that many bytes behind it.
    Bytes countedBytes() { return bytes(byte()); }

    Bytes rest() { return bytes(remaining); }

  private:
    const std::uint8_t* next;
    std::size_t remaining;
};

/// The big-endian word at `offset`, which lies inside.
template <typename ByteVector>
std::uint32_t wordAt(const ByteVector& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8U | static_cast<std::uint8_t>(bytes[offset + i]);
    }
    return value;
}

}  // namespace fuzz
}  // namespace com_tesk
