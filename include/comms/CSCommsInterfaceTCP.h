#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "comms/CSCommsInterface.h"
#include "message/Export.h"

namespace com_tesk {

class TcpConnection;

/// One TCP connection over POSIX sockets. It has no knowledge of frames.
///
/// Addresses are IPv4 addresses in network order, as `inet_addr` returns them; ports are plain numbers.
///
/// Threads: one thread reads and opens; any thread may write or close at any time. A read or write never uses a
/// descriptor that is not, or no longer, this connection's socket. No operation may begin once destruction has begun.
/// The destructor waits for operations in progress.
class CSCLIENT_EXPORT CSCommsInterfaceTCP : public CSCommsInterface {
  public:
    /// Socket buffer sizes, and whether failures are reported. A client sets them at every attempt to connect: see
    /// `CSClient::changeCommsInterface`.
    struct Options {
        bool quiet = false;                   ///< Print no diagnostics.
        std::uint32_t receiveBufferSize = 0;  ///< Socket receive buffer in bytes; 0 leaves the system's default.
        std::uint32_t sendBufferSize = 0;     ///< Socket send buffer in bytes; 0 leaves the system's default.
    };

    /// Stores the options; opens nothing.
    explicit CSCommsInterfaceTCP(const Options& options);

    /// Closes the socket, if one is open. Wakes a read or write in progress and waits until it has returned.
    ~CSCommsInterfaceTCP() override;

    /// Replaces the options; they take effect at the next `openConnection`. The opening thread only.
    void setOptions(const Options& options);

    /// Reads with one system call; blocks for at most one second.
    ///
    /// First `message` grows by `count` zero bytes. The bytes that arrive overwrite them from its old end on. After a
    /// short read the message holds exactly `count` bytes, whatever it held before: readers of bodies that arrive in
    /// pieces rely on it. An empty message keeps `count` bytes with a zero tail. A message that already held bytes is
    /// cut back, or filled with zeros, to `count`. After -1 and -2 it keeps the grown size.
    /// @return as `CSCommsInterface::readMessage`; -1 with EMSGSIZE, the message unchanged, when the grown size would
    ///         not fit 32 bits or a vector.
    /// @throw std::bad_alloc  the message cannot grow. It is unchanged, and nothing was read.
    int readMessage(unsigned int count, RawMessage& message) override;

    /// Writes with one system call, neither repeated nor completed. A short count is possible. Blocks while the
    /// socket's send buffer is full: at most 30 seconds, or until another thread closes. Takes no lock: when two
    /// threads write at once, either frame may leave first.
    /// @return as `CSCommsInterface::writeMessage`; -1 with EBADF when no socket is open, with EAGAIN after 30 seconds
    ///         in which no byte could leave.
    int writeMessage(const RawMessage& message) override;

    /// Shuts the connection down and closes the socket. Wakes a read or write that blocks on it and waits until that
    /// has returned. Operations that begin later do not prolong the wait. Not a cancellation point.
    /// @return the system's result; -1 when no socket was open.
    int close() override;

    /// Closes any open socket, opens a new one and connects it. The process ignores SIGPIPE from then on.
    ///
    /// The socket's receive time-out is 1 second, its send time-out 30 seconds, Nagle's algorithm is off.
    /// Blocks until the connection is established or has failed: at most 30 seconds. `close` cannot end it meanwhile.
    /// A connection to itself is a failure. It can occur when no host listens on the port and the system selects that
    /// port for the client's own end.
    /// @param address  in network order.
    /// @param port     only its low 16 bits count.
    /// @return true when it is connected. Otherwise no socket is open. A failure other than that of the connect
    ///         itself is reported on standard error, unless the options say `quiet`.
    virtual bool openConnection(unsigned int address, unsigned int port);

    /// Notifies the transport that its connection is being given up (true) or that a new one may be made (false). A
    /// transport that supports it then ends every wait in progress and begins none, so that no thread waits for a
    /// silent host. This transport does nothing: its waits end by their own time-outs. Any thread; never blocks.
    virtual void setInterrupted(bool interrupted);

    /// As the numeric form, with a dotted address; not null. Text that is no address is taken as 255.255.255.255.
    bool openConnection(const char* address, unsigned int port);

    /// Returns `inet_addr(address)`: the address in network order, 0xFFFFFFFF for text that is no address. Not null.
    static std::uint32_t convertIPAddressToOctet(const char* address);

    /// Returns the dotted text of an address. The least significant byte comes first: on a little-endian machine that
    /// converts a network-order address back into its text.
    static std::string convertIPOctetToAddress(unsigned int octet);

  protected:
    /// Returns the current options. The opening thread only.
    const Options& getOptions() const;

    /// Returns the socket, for the library's own transports.
    TcpConnection& connection() const { return *tcp; }

  private:
    const std::unique_ptr<TcpConnection> tcp;
};

}  // namespace com_tesk
