#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>

namespace com_tesk::bench {

/// What a host does with each connection, after it has confirmed the first `registrations` requests to register.
/// Parameters get the ids 1, 2, ... in the order of the request.
struct HostTask {
    enum Kind {
        CONFIRM,  ///< Goes on confirming.
        SWALLOW,  ///< Reads and does nothing else.
        UPDATE,   ///< Sends updates, as many as `HostProcess::sendUpdates` asks for, on its first connection.
        ECHO,     ///< Answers each publication of one value with an update of one value.
    };

    Kind kind = CONFIRM;
    unsigned int registrations = 0;

    /// SWALLOW: whether it sleeps until there are 64 KiB to read, and takes them at once: a write then hardly ever has to
    /// wake it. Otherwise it reads what there is as soon as it is there.
    bool readsRarely = false;

    /// UPDATE: the values of each update.
    unsigned int valuesPerUpdate = 1;
};

/// The receive buffer that a burst of updates needs.
constexpr int kReceiveBuffer = 1 << 20;

/// A host in a process of its own that does next to nothing, so that it never is what is waited for. One connection at
/// a time. It ends with the object.
class HostProcess {
  public:
    explicit HostProcess(const HostTask& task);
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    ~HostProcess();

    unsigned int port() const { return portNumber; }

    /// Has so many more updates sent: at most `updatesPerBurst`, when all before have been received. They fit the receive
    /// buffer of a client that has asked for `kReceiveBuffer`. A frame never arrives in pieces, because the standard
    /// transport wants it whole.
    void sendUpdates(unsigned int count) { shared->updatesAsked += count; }
    unsigned int updatesPerBurst() const;

    /// Waits until they lie in the client's receive buffer, so that no read need sleep.
    void waitUntilSent() const;

  private:
    /// What both processes see.
    struct Shared {
        std::atomic<unsigned int> updatesAsked{0};
        std::atomic<unsigned int> updatesSent{0};
    };

    [[noreturn]] void run(int listener) const;
    void serve(int socket) const;
    static bool confirm(int socket);
    void swallow(int socket) const;
    void update(int socket) const;
    static void echo(int socket);

    const HostTask task;
    Shared* shared;
    unsigned int portNumber = 0;
    pid_t child = -1;
};

}  // namespace com_tesk::bench
