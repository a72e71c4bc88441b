#pragma once

#include <netinet/tcp.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace com_tesk::test {

/// Records the socket calls of the creating thread, from construction to destruction, and replaces results where the
/// test says so. One at a time per thread; only that thread may use it.
///
/// Sockets are named #1, #2 ... in the order of their creation; an earlier descriptor is "#?". The lines are
///   sigaction SIGPIPE SIG_IGN mask=empty flags=0 old=none
///   socket AF_INET SOCK_STREAM|SOCK_CLOEXEC IPPROTO_TCP
///   setsockopt #1 SOL_SOCKET SO_RCVTIMEO 1 s 0 us
///   setsockopt #1 IPPROTO_TCP TCP_NODELAY 1
///   fcntl #1 F_SETFD (other commands are numbers)
///   connect #1 AF_INET 127.0.0.1:4464 padding=zero
///   read #1 32, write #1 44, recv #1 16384, send #1 44
///   shutdown #1 SHUT_RDWR
///   close #1
class SystemCalls {
  public:
    SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;
    ~SystemCalls();

    /// From now on a call whose line contains `part` returns `result` with `error` in errno, without calling the
    /// system. A close is carried out nevertheless, as by a system that reports an error.
    void answer(const std::string& part, int result, int error) { answers.push_back({part, result, error}); }
    void fail(const std::string& part, int error) { answer(part, -1, error); }

    /// From now on `action` runs before each call whose line contains `part`.
    void before(const std::string& part, std::function<void()> action) { actions.push_back({part, std::move(action)}); }

    /// From now on the system reports this about every TCP connection.
    void pretendTcpInfo(const tcp_info& info) { pretended = info; }
    const std::optional<tcp_info>& pretendedTcpInfo() const { return pretended; }

    const std::vector<std::string>& lines() const { return recorded; }

    /// Returns the lines that contain `part`, each with a newline at its end.
    std::string textOf(const std::string& part) const;
    std::string text() const { return textOf(""); }

    /// Returns the descriptors of the sockets #1, #2 ...
    const std::vector<int>& descriptors() const { return created; }

    struct Answer {
        std::string part;
        int result;
        int error;
    };

    /// Used by the replaced calls. Returns the answer to give, or null.
    const Answer* record(const std::string& line);
    std::string nameOf(int descriptor) const;
    void socketCreated(int descriptor);
    void socketClosed(int descriptor) { numbers.erase(descriptor); }

  private:
    struct Action {
        std::string part;
        std::function<void()> action;
    };

    std::vector<std::string> recorded;
    std::vector<Answer> answers;
    std::vector<Action> actions;
    std::vector<int> created;
    std::map<int, std::size_t> numbers;
    std::optional<tcp_info> pretended;
};

}  // namespace com_tesk::test
