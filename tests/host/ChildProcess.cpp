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
    int output[2];
    int errors[2];
    if (::pipe2(output, O_CLOEXEC) != 0 || ::pipe2(errors, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::system_category(), "pipe");
    }
    m_pid = test::startProgram(program, program, arguments, output[1], errors[1]);
    ::close(output[1]);
    ::close(errors[1]);
    m_output.descriptor = output[0];
    m_errors.descriptor = errors[0];
}

ChildProcess::~ChildProcess() {
    if (!m_reaped) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    ::close(m_output.descriptor);
    ::close(m_errors.descriptor);
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
        for (std::size_t end; (end = m_output.buffer.find('\n')) != std::string::npos;) {
            std::string line = m_output.buffer.substr(0, end);
            m_output.buffer.erase(0, end + 1);
            if (line.find(part) != std::string::npos) {
                return line;
            }
        }
    } while (readMore(m_output));
    return {};
}

std::string ChildProcess::rest(Stream& stream) {
    while (readMore(stream)) {
    }
    return std::exchange(stream.buffer, {});
}

std::string ChildProcess::restOfOutput() {
    return rest(m_output);
}

std::string ChildProcess::restOfErrors() {
    return rest(m_errors);
}

void ChildProcess::signal(int number) {
    ::kill(m_pid, number);
}

std::optional<int> ChildProcess::exitCode() {
    // Its end closes its streams, so waiting for that is waiting with a bound.
    while (readMore(m_output)) {
    }
    while (readMore(m_errors)) {
    }
    int status = 0;
    if (!m_output.ended || !m_errors.ended || ::waitpid(m_pid, &status, 0) != m_pid) {
        return std::nullopt;
    }
    m_reaped = true;
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace com_tesk::host_test
