#pragma once

#include <atomic>
#include <string_view>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CSUseCount.h"

namespace com_tesk {

/// The socket of a transport. One thread opens and reads; any thread may write or close at any time. The descriptor
/// is closed only after the threads that use it have left. So no thread ever uses a descriptor that the system has
/// given to another file.
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

    /// Returns the socket, or `kNoSocket`. Use it only while the thread is counted in `readers` or `writers`.
    int descriptor() const { return socketHandle; }

    /// True when there is a socket; sets `errno` to EBADF when there is none.
    bool isOpen() const;

    /// Counts of the threads inside a read, or inside a write. They are separate, so that a writer can check whether
    /// a reader is inside.
    CSUseCount& readers() { return readingThreads; }
    CSUseCount& writers() { return writingThreads; }

    /// Makes a descriptor the socket: from then on other threads use and close it.
    void adopt(int newDescriptor) { socketHandle = newDescriptor; }

    /// Shuts the connection down, waits for the threads that use it, and closes the socket. Not a cancellation point.
    /// @return the system's result; -1 when no socket was open.
    int close();

    /// Waits until the threads inside a read or a write have left. Call it only after the socket has been cleared.
    void waitForUsers();

    /// Creates a TCP socket that programs started by the application do not inherit.
    /// @return the socket; `kNoSocket` after a failure, which has been reported.
    int createSocket() const;

    /// Sets the socket options that must be set before connecting.
    /// @return false after a failure with which the connection must not be made.
    bool configureSocket(int newDescriptor) const;

    /// Calls the system's `connect`.
    /// @return true when it has succeeded; otherwise the reason is in `errno`.
    static bool connectSocket(int newDescriptor, unsigned int address, unsigned int port);

    /// True when the connection's two ends are the same socket. Then it ends the connection and sets `errno` to
    /// ECONNREFUSED.
    static bool isConnectedToItself(int connectedDescriptor);

    /// Prints one line on standard error, unless the options say `quiet`.
    void report(std::string_view line) const;

  private:
    /// Opening thread only.
    CSCommsInterfaceTCP::Options options;

    /// `close` clears it. The thread that has cleared it closes the socket once `readingThreads` and `writingThreads`
    /// are zero.
    std::atomic<int> socketHandle{kNoSocket};
    CSUseCount readingThreads;
    CSUseCount writingThreads;
};

}  // namespace com_tesk
