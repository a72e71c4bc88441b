#include "tools/csx/DataOutput.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <system_error>

#include "tools/csx/Signals.h"

namespace com_tesk::csx {

void DataOutput::line(std::string_view text) {
    write(std::string(text) + '\n');
}

void DataOutput::write(std::string_view bytes) {
    while (!bytes.empty()) {
        pollfd waiting[]{{STDOUT_FILENO, POLLOUT, 0}, {signals.descriptor(), POLLIN, 0}};
        if (poll(waiting, 2, -1) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "standard output");
        }
        if (const int signal = signals.taken(); signal != 0) {
            throw Interrupted{signal};
        }
        if (waiting[0].revents == 0) {
            continue;
        }
        // A pipe that is writable takes this many bytes without blocking.
        const ssize_t written = ::write(STDOUT_FILENO, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            throw OutputClosed{};
        } else if (errno != EINTR && errno != EAGAIN) {
            throw std::system_error(errno, std::generic_category(), "standard output");
        }
    }
}

bool DataOutput::hasColours() {
    // NOLINTBEGIN(concurrency-mt-unsafe): no thread of this program changes the environment.
    const char* const off = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    // NOLINTEND(concurrency-mt-unsafe)
    const bool isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return isatty(STDOUT_FILENO) == 1 && (off == nullptr || *off == '\0') && !isDumb;
}

}  // namespace com_tesk::csx
