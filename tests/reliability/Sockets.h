#pragma once

#include <cstddef>

namespace com_tesk::test {

/// Where the hosts of this room listen. They are many, and elsewhere tests rely on a free port of 127.0.0.1 staying one.
constexpr const char* kHostAddress = "127.0.0.2";

/// A listening socket on kHostAddress, on a port that the system picks.
int listenOnLoopback();

/// The port that a socket is bound to.
unsigned int portOf(int socket);

/// A port of kHostAddress that refuses connections, and that only a host that is told its number can listen on.
class ReservedPort {
  public:
    ReservedPort();
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;
    ~ReservedPort();

    unsigned int number() const { return portOf(descriptor); }

  private:
    const int descriptor;
};

/// Closes a connection with a reset.
void closeWithReset(int socket);

/// Waits until the socket has something to read, or has ended; false when the bound passes first.
bool isReadableWithin(int socket, int milliseconds);

}  // namespace com_tesk::test
