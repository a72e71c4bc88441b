#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace com_tesk {

/// Bytes that have been read from a stream before anybody asked for them. One thread.
class ReadAheadBuffer {
  public:
    explicit ReadAheadBuffer(std::size_t capacity) : bytes(capacity) {}

    std::size_t capacity() const { return bytes.size(); }

    const char* data() const { return bytes.data() + begin; }
    std::size_t size() const { return end - begin; }

    void clear() { begin = end = 0; }

    /// Takes the first `count` bytes away.
    void consume(std::size_t count) {
        begin += count;
        if (begin == end) {
            clear();
        }
    }

    /// Where the next bytes of the stream belong: `freeSize` bytes, all that are not in use.
    char* freeSpace() {
        if (begin > 0) {
            std::memmove(bytes.data(), data(), size());
            end = size();
            begin = 0;
        }
        return bytes.data() + end;
    }
    std::size_t freeSize() const { return capacity() - size(); }

    /// `count` bytes now stand in the room.
    void filled(std::size_t count) { end += count; }

  private:
    std::vector<char> bytes;
    std::size_t begin = 0;
    std::size_t end = 0;
};

}  // namespace com_tesk
