#include "tests/tools/PublisherProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "tests/support/Emulator.h"

namespace com_tesk::test {

namespace {

constexpr std::chrono::seconds kBound{40};
constexpr std::size_t kConnectedLine = 11;

void makePipe(int (&ends)[2]) {
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
}

}  // namespace

PublisherProcess::PublisherProcess(const std::vector<std::string>& arguments, const PublisherSetup& setup) {
    int outEnds[2];
    int errEnds[2];
    makePipe(outEnds);
    makePipe(errEnds);
    out.descriptor = outEnds[0];
    err.descriptor = errEnds[0];
    if (setup.isClogged) {
        clog(outEnds[1]);
    }

    process = startProgram(setup.connectsSlowly ? SLOW_CSPUBLISH_PATH : CSPUBLISH_PATH, setup.ownName, arguments,
                           outEnds[1], errEnds[1]);
    close(outEnds[1]);
    close(errEnds[1]);
}

PublisherProcess::~PublisherProcess() {
    if (process > 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    for (const int descriptor : {out.descriptor, err.descriptor}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void PublisherProcess::clog(int writeEnd) {
    clogged = true;
    const int capacity = fcntl(writeEnd, F_SETPIPE_SZ, 4096);
    if (capacity < 0) {
        throw std::system_error(errno, std::generic_category(), "pipe size");
    }
    fillerLeft = static_cast<std::size_t>(capacity) - kConnectedLine;
    const std::string filler(fillerLeft, '.');
    if (write(writeEnd, filler.data(), filler.size()) != static_cast<ssize_t>(filler.size())) {
        throw std::system_error(errno, std::generic_category(), "filling the pipe");
    }
}

bool PublisherProcess::readMore(Clock::time_point deadline) {
    pollfd entries[2] = {{clogged ? -1 : out.descriptor, POLLIN, 0}, {err.descriptor, POLLIN, 0}};
    if (entries[0].fd < 0 && entries[1].fd < 0) {
        return false;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const int ready = poll(entries, 2, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left, 0)));
    if (ready <= 0) {
        return ready < 0 && errno == EINTR;
    }
    for (Stream* const stream : {&out, &err}) {
        if (entries[stream == &err].revents == 0) {
            continue;
        }
        char piece[4096];
        const ssize_t count = read(stream->descriptor, piece, sizeof piece);
        if (count <= 0) {
            close(stream->descriptor);
            stream->descriptor = -1;
            continue;
        }
        stream->text.append(piece, static_cast<std::size_t>(count));
        if (stream == &out) {
            const std::size_t filler = std::min(fillerLeft, stream->text.size());
            stream->text.erase(0, filler);
            fillerLeft -= filler;
        }
    }
    return true;
}

bool PublisherProcess::waitFor(const Stream& stream, const std::string& part) {
    const auto deadline = Clock::now() + kBound;
    while (stream.text.find(part) == std::string::npos) {
        if (!readMore(deadline)) {
            return false;
        }
    }
    return true;
}

bool PublisherProcess::hasEndedWithin(std::chrono::milliseconds duration) {
    const auto deadline = Clock::now() + duration;
    while (readMore(deadline)) {
    }
    return hasEnded();
}

long PublisherProcess::timesBlocked() const {
    const std::string task = std::to_string(process);
    std::ifstream status("/proc/" + task + "/task/" + task + "/status");
    for (std::string word; status >> word;) {
        if (word == "voluntary_ctxt_switches:") {
            long count = 0;
            status >> count;
            return count;
        }
    }
    throw std::runtime_error("the system does not count switches");
}

bool PublisherProcess::waitUntilBlockedAgain(long timesBefore) const {
    const auto deadline = Clock::now() + kBound;
    while (timesBlocked() == timesBefore) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

int PublisherProcess::exitCode() {
    unclog();
    if (!hasEndedWithin(kBound)) {
        return -1;
    }
    // Both streams have ended, so the process has, or is about to.
    int status = 0;
    if (waitpid(process, &status, 0) != process) {
        return -1;
    }
    process = -1;
    secondsTaken = std::chrono::duration<double>(Clock::now() - start).count();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace com_tesk::test
