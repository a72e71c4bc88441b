#pragma once

#include <netinet/tcp.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace com_tesk::test {

/// Writes down the socket calls that the creating thread makes, from construction to destruction, and answers in the
/// system's place where the test says so. One at a time per thread; it belongs to that thread.
///
/// Sockets are named #1, #2 ... in the order of their creation; a descriptor from before is "#?". The lines are
///   sigaction SIGPIPE SIG_IGN mask=empty flags=0 old=none
///   socket AF_INET SOCK_STREAM|SOCK_CLOEXEC IPPROTO_TCP
///   fcntl #1 F_SETFL
///   setsockopt #1 SOL_SOCKET SO_RCVTIMEO 1 s 0 us
///   setsockopt #1 IPPROTO_TCP TCP_NODELAY 1
///   connect #1 AF_INET 127.0.0.1:4464 padding=zero
///   read #1 32
///   write #1 44
///   recv #1 16384
///   send #1 44
///   shutdown #1 SHUT_RDWR
///   close #1
class SystemCalls {
  public:
    SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;
    ~SystemCalls();

    /// From now on a call whose line contains `part` returns `result` with `error` in errno, and the system does not
    /// get it (but a close is carried out all the same, as a system that reports an error does).
    void answer(const std::string& part, int result, int error);

    /// From now on a call whose line contains `part` fails.
    void fail(const std::string& part, int error) { answer(part, -1, error); }

    /// From now on `action` runs inside each call whose line contains `part`, before the system gets it.
    void before(const std::string& part, std::function<void()> action);

    /// From now on this is what the system says of every TCP connection.
    void pretendTcpInfo(const tcp_info& info) { pretended = std::make_unique<tcp_info>(info); }
    const tcp_info* pretendedTcpInfo() const { return pretended.get(); }

    const std::vector<std::string>& lines() const { return recorded; }

    /// The lines, each with a newline behind it.
    std::string text() const;

    /// The lines that contain `part`, each with a newline behind it.
    std::string textOf(const std::string& part) const;

    /// The descriptors that the sockets #1, #2 ... were given.
    const std::vector<int>& descriptors() const { return created; }

    struct Answer {
        std::string part;
        int result;
        int error;
    };

    /// What the calls themselves use.
    /// @return how to answer in the system's place, or null.
    const Answer* record(const std::string& line);
    std::string nameOf(int descriptor) const;
    void socketCreated(int descriptor);
    void socketClosed(int descriptor);

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
    std::unique_ptr<tcp_info> pretended;
};

}  // namespace com_tesk::test
