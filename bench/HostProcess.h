#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>

namespace com_tesk::bench {

/// The work of a host for each connection, after it has confirmed the first `registrations` requests to register.
/// Parameters get the ids 1, 2, ... in the order of the request.
struct HostTask {
    enum Kind {
        CONFIRM,  ///< Continues to confirm.
        DISCARD,  ///< Reads and does nothing else.
        UPDATE,   ///< Sends the updates that `HostProcess::sendUpdates` requests, on its first connection.
        ECHO,     ///< Answers each publication of one value with an update of one value.
    };

    Kind kind = CONFIRM;
    unsigned int registrations = 0;

    /// DISCARD: when true, the host sleeps until 64 KiB have arrived, and reads them in one call. A write then rarely
    /// has to wake it. When false, the host reads bytes as soon as they arrive.
    bool readsRarely = false;

    /// UPDATE: the values of each update.
    unsigned int valuesPerUpdate = 1;
};

/// The receive buffer that a burst of updates needs.
constexpr int kReceiveBuffer = 1 << 20;

/// A host in a separate process. It does very little, so that no measurement waits for it. It serves one connection at
/// a time, and ends with the object.
class HostProcess {
  public:
    explicit HostProcess(const HostTask& task);
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    ~HostProcess();

    unsigned int port() const { return portNumber; }

    /// Makes the host send `count` more updates: at most `updatesPerBurst`, and only when all earlier ones have been
    /// received. They fit into the receive buffer of a client that has requested `kReceiveBuffer`. No frame arrives in
    /// pieces, because the standard transport needs it whole.
    void sendUpdates(unsigned int count) { shared->updatesAsked += count; }
    unsigned int updatesPerBurst() const;

    /// Waits until the requested updates are in the client's receive buffer, so that no read has to sleep.
    void waitUntilSent() const;

  private:
    /// The memory that both processes share.
    struct Shared {
        std::atomic<unsigned int> updatesAsked{0};
        std::atomic<unsigned int> updatesSent{0};
    };

    [[noreturn]] void run(int listener) const;
    void serve(int socket) const;
    static bool confirm(int socket);
    void discard(int socket) const;
    void update(int socket) const;
    static void echo(int socket);

    const HostTask task;
    Shared* shared;
    unsigned int portNumber = 0;
    pid_t child = -1;
};

}  // namespace com_tesk::bench
