#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/recording/Entry.h"

/// The packets of a capture file: pcap with microseconds, and IPv4 packets without a link layer.
namespace com_tesk::recording {

/// Times since the beginning of 1970.
using CaptureTime = std::chrono::microseconds;

/// The end of a TCP connection.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
};

/// Returns the address of `127.0.0.1:55580`; `otherwise` when the text is none.
Endpoint endpointOf(const std::string& text, Endpoint otherwise);

/// Appends the header of a capture file.
void appendCaptureHeader(std::string& capture);

/// The packets of one TCP connection. Each data segment is acknowledged at once.
class TcpConversation {
  public:
    /// @param number  distinguishes connections; the sequence numbers follow from it.
    TcpConversation(Endpoint clientEnd, Endpoint hostEnd, std::uint32_t number);

    /// Each appends packets to a capture.
    /// @{
    void open(std::string& capture, CaptureTime time);
    void send(std::string& capture, CaptureTime time, Side side, const std::uint8_t* data, std::size_t size);
    /// Both sides close, this one first.
    void close(std::string& capture, CaptureTime time, Side side);
    void reset(std::string& capture, CaptureTime time, Side side);
    /// @}

  private:
    struct End {
        Endpoint place;
        std::uint32_t next;  ///< Its next sequence number.
    };
    struct Payload {
        const std::uint8_t* data = nullptr;
        std::size_t size = 0;
    };

    void segment(std::string& capture, CaptureTime time, Side side, std::uint8_t flags, Payload payload);
    void acknowledge(std::string& capture, CaptureTime time, Side side);

    End client;
    End host;
    std::uint16_t packets = 0;
};

}  // namespace com_tesk::recording
