#include "tests/host/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <utility>

#include "tests/host/RawClient.h"
#include "tests/support/Emulator.h"

namespace com_tesk::host_test {

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments) {
    int outputPipe[2];
    int errorPipe[2];
    if (::pipe2(outputPipe, O_CLOEXEC) != 0 || ::pipe2(errorPipe, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::system_category(), "pipe");
    }
    pid = test::startProgram(program, program, arguments, outputPipe[1], errorPipe[1]);
    ::close(outputPipe[1]);
    ::close(errorPipe[1]);
    output.descriptor = outputPipe[0];
    errors.descriptor = errorPipe[0];
}

ChildProcess::~ChildProcess() {
    if (!reaped) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    ::close(output.descriptor);
    ::close(errors.descriptor);
}

bool ChildProcess::readMore(Stream& stream) {
    pollfd entry{stream.descriptor, POLLIN, 0};
    if (::poll(&entry, 1, static_cast<int>(kPatience.count())) <= 0) {
        return false;
    }
    char piece[4096];
    const ssize_t count = ::read(stream.descriptor, piece, sizeof piece);
    if (count <= 0) {
        stream.ended = true;
        return false;
    }
    stream.buffer.append(piece, static_cast<std::size_t>(count));
    return true;
}

std::string ChildProcess::lineWith(const std::string& part) {
    do {
        for (std::size_t end; (end = output.buffer.find('\n')) != std::string::npos;) {
            std::string line = output.buffer.substr(0, end);
            output.buffer.erase(0, end + 1);
            if (line.find(part) != std::string::npos) {
                return line;
            }
        }
    } while (readMore(output));
    return {};
}

std::string ChildProcess::rest(Stream& stream) {
    while (readMore(stream)) {
    }
    return std::exchange(stream.buffer, {});
}

std::string ChildProcess::restOfOutput() {
    return rest(output);
}

std::string ChildProcess::restOfErrors() {
    return rest(errors);
}

void ChildProcess::signal(int number) {
    ::kill(pid, number);
}

std::optional<int> ChildProcess::exitCode() {
    // Its end closes its streams, so waiting for that is waiting with a bound.
    while (readMore(output)) {
    }
    while (readMore(errors)) {
    }
    int status = 0;
    if (!output.ended || !errors.ended || ::waitpid(pid, &status, 0) != pid) {
        return std::nullopt;
    }
    reaped = true;
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace com_tesk::host_test
