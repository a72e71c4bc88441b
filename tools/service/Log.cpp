#include "tools/service/Log.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace com_tesk::service {

namespace {

constexpr std::chrono::milliseconds kPatience{1'000};

std::string prefixOf(Level level, Log::Form form) {
    if (form == Log::Form::JOURNAL) {
        return '<' + std::to_string(static_cast<int>(level)) + '>';
    }
    return std::string(nameOf(level)) + ": ";
}

void appendPrintable(std::string& line, std::string_view text) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    constexpr unsigned char kDelete = 0x7F;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= ' ' && byte != kDelete) {
            line += c;
        } else {
            line += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
        }
    }
}

}  // namespace

const char* nameOf(Level level) {
    switch (level) {
        case Level::ERROR:
            return "error";
        case Level::WARNING:
            return "warning";
        case Level::NOTICE:
            return "notice";
        case Level::INFO:
            return "info";
        case Level::DEBUG:
            return "debug";
    }
    return "";
}

void Log::write(Level level, const std::string& text) {
    if (level > least) {
        return;
    }
    const std::string line = lineOf(level, text);
    loss.change([&](Loss& now) {
        const std::chrono::milliseconds patience = now.isBlocked ? std::chrono::milliseconds(0) : kPatience;
        if (now.lines > 0 && put(lineOf(Level::WARNING, std::to_string(now.lines) + " lines of the log were lost"),
                                 std::chrono::milliseconds(0))) {
            now.lines = 0;
        }
        now.isBlocked = !put(line, patience);
        now.lines += now.isBlocked ? 1 : 0;
    });
}

std::string Log::lineOf(Level level, const std::string& text) const {
    std::string line = prefixOf(level, form);
    appendPrintable(line, text);
    return line + '\n';
}

bool Log::put(std::string_view line, std::chrono::milliseconds patience) const {
    constexpr std::size_t kMaxWrite = 4'096;  // A pipe that is ready takes this much without blocking.
    while (!line.empty()) {
        pollfd waiting{descriptor, POLLOUT, 0};
        if (poll(&waiting, 1, static_cast<int>(patience.count())) == 0) {
            return false;
        }
        const ssize_t written = ::write(descriptor, line.data(), std::min(line.size(), kMaxWrite));
        if (written >= 0) {
            line.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR && errno != EAGAIN) {
            return true;  // There is no reader. Nothing can be reported later, either.
        }
    }
    return true;
}

void Log::writeRarely(Level level, const std::string& key, const std::string& text) {
    if (level > least) {
        return;
    }
    const auto suppressed = limit.change([&key](LineLimit& current) { return current.admit(key); });
    if (!suppressed) {
        return;
    }
    write(level, *suppressed == 0 ? text : text + " (" + std::to_string(*suppressed) + " such lines were left out)");
}

Log::Form Log::formOf(int descriptor) {
    const char* const stream = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe): read at the start only.
    struct stat status {};
    if (stream == nullptr || fstat(descriptor, &status) != 0) {
        return Form::NAMES;
    }
    const std::string own = std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
    return own == stream ? Form::JOURNAL : Form::NAMES;
}

}  // namespace com_tesk::service
