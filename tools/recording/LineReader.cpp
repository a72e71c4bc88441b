#include "tools/recording/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace com_tesk::recording {

namespace {

constexpr std::size_t kBlockSize = std::size_t{256} * 1024;

}  // namespace

LineReader::LineReader(const std::string& file)
    : descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)), block(kBlockSize) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), file);
    }
    struct stat status {};
    fstat(descriptor, &status);
    if (S_ISREG(status.st_mode)) {
        return;
    }
    close(descriptor);
    if (S_ISDIR(status.st_mode)) {
        throw std::system_error(EISDIR, std::generic_category(), file);
    }
    throw std::runtime_error(file + ": no regular file, and a recording is read more than once");
}

LineReader::~LineReader() {
    close(descriptor);
}

bool LineReader::fill() {
    ssize_t got = 0;
    do {
        got = read(descriptor, block.data(), block.size());
    } while (got < 0 && errno == EINTR);
    position = 0;
    filled = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    return filled != 0;
}

std::optional<LineReader::Line> LineReader::next() {
    longLine.clear();
    bool isTooLong = false;
    while (position < filled || fill()) {
        const char* const begin = block.data() + position;
        const void* const found = std::memchr(begin, '\n', filled - position);
        const std::size_t size =
            found != nullptr ? static_cast<std::size_t>(static_cast<const char*>(found) - begin) : filled - position;
        position += size + (found != nullptr ? 1 : 0);
        const std::string_view piece(begin, size);
        if (found != nullptr && longLine.empty()) {
            ++lineNumber;
            return Line{piece};
        }
        isTooLong = isTooLong || piece.size() > kMaxLineSize - longLine.size();
        longLine += piece.substr(0, kMaxLineSize - longLine.size());
        if (found != nullptr) {
            ++lineNumber;
            return Line{longLine, true, isTooLong};
        }
    }
    if (longLine.empty()) {
        return std::nullopt;
    }
    ++lineNumber;
    return Line{longLine, false, isTooLong};
}

}  // namespace com_tesk::recording
