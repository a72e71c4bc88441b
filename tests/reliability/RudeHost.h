#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <thread>

namespace com_tesk::test {

/// A host that treats every client in the same bad way: each connection gets a thread of its own, on which `treat` does
/// with it what it wants.
class RudeHost {
  public:
    /// What `treat` has of a connection. Every operation ends when the host goes away.
    class Guest {
      public:
        Guest(const RudeHost& ownHost, int ownSocket) : host(ownHost), socket(ownSocket) {}

        /// Sends the bytes; false when the client or the host has gone.
        bool send(const void* bytes, std::size_t count) const;

        /// Reads and drops what the client sends, until it is silent for `milliseconds`; false when the client or the
        /// host has gone.
        bool drop(int milliseconds) const;

        /// Does nothing until the host goes away.
        void hold() const;

        bool isWanted() const { return !host.leaving; }
        void resetOnLeaving() { reset = true; }
        int descriptor() const { return socket; }

      private:
        friend class RudeHost;
        const RudeHost& host;
        const int socket;
        bool reset = false;
    };

    /// @param receiveBuffer  the connections' receive buffer in bytes; 0 leaves the system's default.
    explicit RudeHost(std::function<void(Guest& guest, int number)> treatment, int receiveBuffer = 0);
    RudeHost(const RudeHost&) = delete;
    RudeHost& operator=(const RudeHost&) = delete;
    ~RudeHost() { leave(); }

    unsigned int port() const { return portNumber; }

    /// Connections so far.
    int guests() const { return guestCount; }

    /// Closes every connection and the port.
    void leave();

  private:
    void run();

    const std::function<void(Guest& guest, int number)> treat;
    const int listener;
    const unsigned int portNumber;
    std::atomic<bool> leaving{false};
    std::atomic<int> guestCount{0};
    struct Treated {
        std::thread thread;
        std::atomic<bool> isOver{false};
    };
    std::list<Treated> treated;  ///< the accepting thread's own, until that has ended
    std::thread thread;
};

}  // namespace com_tesk::test
