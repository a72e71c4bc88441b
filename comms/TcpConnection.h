#pragma once

#include <atomic>
#include <string_view>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CSUseCount.h"

namespace com_tesk {

/// The socket of a transport. One thread opens and reads; any thread may write or close at any time. The descriptor is
/// closed once the threads that use it have left, so that no thread ever uses a descriptor of somebody else.
class TcpConnection {
  public:
    static constexpr int kNoSocket = -1;

    explicit TcpConnection(const CSCommsInterfaceTCP::Options& initialOptions) : options(initialOptions) {}
    TcpConnection(const TcpConnection&) = delete;
    TcpConnection& operator=(const TcpConnection&) = delete;
    /// As `close`.
    ~TcpConnection();

    /// Opening thread only.
    const CSCommsInterfaceTCP::Options& getOptions() const { return options; }
    void setOptions(const CSCommsInterfaceTCP::Options& newOptions) { options = newOptions; }

    /// The socket, or `kNoSocket`. To be used while the thread is counted in `readers` or `writers`.
    int descriptor() const { return socketHandle; }

    /// Whether there is a socket; sets `errno` to EBADF when there is none.
    bool isOpen() const;

    /// Threads that are inside a read, or a write. Counted apart, so that a closer may wait for one kind.
    CSUseCount& readers() { return readingThreads; }
    CSUseCount& writers() { return writingThreads; }

    /// Makes a descriptor the socket: from now on other threads use and close it.
    void adopt(int newDescriptor) { socketHandle = newDescriptor; }

    /// Shuts the connection down, waits for the threads that use it, and closes the socket. Not a cancellation point.
    /// @return the system's result; -1 when no socket was open.
    int close();

    /// Waits until the threads that are inside have left. Only after the socket was taken away.
    void waitForUsers();

    /// A TCP socket that programs started by the application do not inherit.
    /// @return `kNoSocket` after a failure, which has been reported.
    int createSocket() const;

    /// Sets what must be set before connecting.
    /// @return false after a failure that forbids going on.
    bool configureSocket(int newDescriptor) const;

    /// The system's `connect`.
    /// @return whether it has succeeded; otherwise `errno` says more.
    static bool connectSocket(int newDescriptor, unsigned int address, unsigned int port);

    /// Whether the connection's two ends are the same socket. Then dissolves the connection and sets `errno` to
    /// ECONNREFUSED.
    static bool isConnectedToItself(int connectedDescriptor);

    /// One line on standard error, unless the options say `quiet`.
    void report(std::string_view line) const;

  private:
    /// Opening thread only.
    CSCommsInterfaceTCP::Options options;

    /// Taken by one thread, in `close`; that thread closes it once `readingThreads` and `writingThreads` have left.
    std::atomic<int> socketHandle{kNoSocket};
    CSUseCount readingThreads;
    /// Counted by themselves: while one thread waits in a read, the one that writes is the first.
    CSUseCount writingThreads;
};

}  // namespace com_tesk
