#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace com_tesk {

/// Bytes that have been read from a stream before the caller requested them. One thread.
class ReadAheadBuffer {
  public:
    explicit ReadAheadBuffer(std::size_t capacity) : bytes(capacity) {}

    std::size_t capacity() const { return bytes.size(); }

    const char* data() const { return bytes.data() + begin; }
    std::size_t size() const { return end - begin; }

    void clear() { begin = end = 0; }

    /// Removes the first `count` bytes.
    void consume(std::size_t count) {
        begin += count;
        if (begin == end) {
            clear();
        }
    }

    /// Returns the free space for the next bytes of the stream: all `freeSize` bytes that are not in use.
    char* freeSpace() {
        if (begin > 0) {
            std::memmove(bytes.data(), data(), size());
            end = size();
            begin = 0;
        }
        return bytes.data() + end;
    }
    std::size_t freeSize() const { return capacity() - size(); }

    /// Adds the first `count` bytes of the free space, which the caller has filled.
    void filled(std::size_t count) { end += count; }

  private:
    std::vector<char> bytes;
    std::size_t begin = 0;
    std::size_t end = 0;
};

}  // namespace com_tesk
