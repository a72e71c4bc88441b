#include "tools/csx/Lines.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace com_tesk::csx {

namespace {

constexpr std::size_t kMaxUnfinished = std::size_t{1} << 20U;

}  // namespace

void Lines::read() {
    std::array<char, 65'536> chunk;
    const ssize_t count = ::read(descriptor, chunk.data(), chunk.size());
    if (count > 0) {
        bytes.erase(0, begin);
        begin = 0;
        bytes.append(chunk.data(), static_cast<std::size_t>(count));
        // So many bytes without a line feed are no text. They are returned as the last line.
        hasEnded = bytes.size() > kMaxUnfinished && bytes.find('\n') == std::string::npos;
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        hasEnded = true;
    }
}

std::optional<std::string> Lines::next() {
    const std::size_t end = bytes.find('\n', begin);
    const bool isWhole = end != std::string::npos;
    if (!isWhole && (!hasEnded || begin == bytes.size())) {
        return std::nullopt;
    }
    std::string line = bytes.substr(begin, isWhole ? end - begin : std::string::npos);
    begin = isWhole ? end + 1 : bytes.size();
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

}  // namespace com_tesk::csx
