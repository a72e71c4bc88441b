#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/Emulator.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

namespace {

void makePipe(int (&ends)[2]) {
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
}

}  // namespace

ChildProcess::ChildProcess(const Setup& setup, const std::vector<std::string>& arguments) {
    int outEnds[2];
    int errEnds[2];
    int inEnds[2] = {-1, -1};
    if (setup.isOnTerminal) {
        openTerminal(outEnds);
    } else {
        makePipe(outEnds);
    }
    makePipe(errEnds);
    if (setup.hasInput) {
        makePipe(inEnds);
        in = inEnds[1];
    }
    out.descriptor = outEnds[0];
    err.descriptor = errEnds[0];
    if (setup.outputSpace) {
        clog(outEnds[1], *setup.outputSpace);
    }
    const std::string& ownName = setup.ownName.empty() ? setup.path : setup.ownName;
    process = startProgram(setup.path, ownName, arguments, outEnds[1], errEnds[1], inEnds[0], setup.environment);
    for (const int descriptor : {outEnds[1], errEnds[1], inEnds[0]}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

ChildProcess::~ChildProcess() {
    if (process > 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    for (const int descriptor : {in, out.descriptor, err.descriptor}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void ChildProcess::openTerminal(int (&ends)[2]) {
    ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (ends[0] < 0 || grantpt(ends[0]) != 0 || unlockpt(ends[0]) != 0) {
        throw std::system_error(errno, std::generic_category(), "terminal");
    }
    ends[1] = open(ptsname(ends[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (ends[1] < 0) {
        throw std::system_error(errno, std::generic_category(), "terminal");
    }
}

void ChildProcess::write(const std::string& text) const {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(in, text.data() + written, text.size() - written);
        if (count < 0) {
            throw std::system_error(errno, std::generic_category(), "standard input of the program");
        }
        written += static_cast<std::size_t>(count);
    }
}

void ChildProcess::closeInput() {
    close(in);
    in = -1;
}

void ChildProcess::closeOutput() {
    close(out.descriptor);
    out.descriptor = -1;
}

void ChildProcess::clog(int writeEnd, std::size_t space) {
    isClogged = true;
    const int capacity = fcntl(writeEnd, F_SETPIPE_SZ, 4096);
    if (capacity < 0) {
        throw std::system_error(errno, std::generic_category(), "pipe size");
    }
    fillerLeft = static_cast<std::size_t>(capacity) - space;
    const std::string filler(fillerLeft, '.');
    if (::write(writeEnd, filler.data(), filler.size()) != static_cast<ssize_t>(filler.size())) {
        throw std::system_error(errno, std::generic_category(), "filling the pipe");
    }
}

bool ChildProcess::readMore(Clock::time_point deadline) {
    pollfd entries[2] = {{isClogged ? -1 : out.descriptor, POLLIN, 0}, {err.descriptor, POLLIN, 0}};
    if (entries[0].fd < 0 && entries[1].fd < 0) {
        return false;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const int ready = poll(entries, 2, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left, 0)));
    if (ready <= 0) {
        return ready < 0 && errno == EINTR;
    }
    if (entries[0].revents != 0) {
        readFrom(out);
        const std::size_t filler = std::min(fillerLeft, out.text.size());
        out.text.erase(0, filler);
        fillerLeft -= filler;
    }
    if (entries[1].revents != 0) {
        readFrom(err);
    }
    return true;
}

void ChildProcess::readFrom(Stream& stream) {
    char piece[4096];
    const ssize_t count = read(stream.descriptor, piece, sizeof piece);
    if (count > 0) {
        stream.text.append(piece, static_cast<std::size_t>(count));
        return;
    }
    close(stream.descriptor);
    stream.descriptor = -1;
}

bool ChildProcess::waitFor(const Stream& stream, const std::string& part) {
    const auto deadline = Clock::now() + kBound;
    while (stream.text.find(part) == std::string::npos) {
        if (!readMore(deadline)) {
            return false;
        }
    }
    return true;
}

std::string ChildProcess::lineWith(const std::string& part) {
    const auto deadline = Clock::now() + kBound;
    for (;;) {
        const std::size_t found = out.text.find(part);
        const std::size_t end = found == std::string::npos ? found : out.text.find('\n', found);
        if (end != std::string::npos) {
            const std::size_t begin = out.text.rfind('\n', found) + 1;  // 0 in the first line, where npos + 1 wraps.
            return out.text.substr(begin, end - begin);
        }
        if (!readMore(deadline)) {
            return {};
        }
    }
}

bool ChildProcess::hasEndedWithin(std::chrono::milliseconds duration) {
    const auto deadline = Clock::now() + duration;
    while (readMore(deadline)) {
    }
    return out.descriptor < 0 && err.descriptor < 0;
}

bool ChildProcess::hasExitedWithin(std::chrono::milliseconds duration) const {
    return waitUntil(
        [this] {
            siginfo_t ended{};
            return waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT | WNOHANG) == 0 &&
                   ended.si_pid == process;
        },
        duration);
}

long ChildProcess::residentBytes() const {
    std::ifstream pages("/proc/" + std::to_string(process) + "/statm");
    long all = 0;
    long resident = 0;
    pages >> all >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

void ChildProcess::signal(int number) const {
    kill(process, number);
}

long ChildProcess::timesBlocked() const {
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

bool ChildProcess::waitUntilBlockedAgain(long timesBefore) const {
    return waitUntil([&] { return timesBlocked() != timesBefore; });
}

int ChildProcess::exitCode() {
    unclog();
    if (!hasEndedWithin(kBound)) {
        return -1;
    }
    // Both streams have ended, so the process has ended or is about to.
    int status = 0;
    if (waitpid(process, &status, 0) != process) {
        return -1;
    }
    process = -1;
    secondsTaken = std::chrono::duration<double>(Clock::now() - start).count();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace com_tesk::test
