#pragma once

#include <cstdint>
#include <vector>

#include "message/Export.h"

namespace com_tesk {

/// The bytes of one message, with big-endian readers and writers by byte index.
///
/// It is a `std::vector<char>`, so every vector operation is part of its interface, and it carries the kind of frame
/// that transports it. Copies are deep. Not synchronised: like a vector, one object belongs to one thread at a time.
///
/// Multi-byte numbers are big-endian on every host. Indexes are byte positions from the start of the buffer.
class CSCLIENT_EXPORT RawMessage : public std::vector<char> {
  public:
    /// What kind of frame carries the message.
    enum Type : std::uint32_t {
        INVALID = 0,  ///< Received with a frame kind that is neither data nor control; never sent.
        DATA = 1,     ///< An ordinary message. When it is sent, its length is written into its bytes 4 to 7.
        CONTROL = 2,  ///< A control message.
    };

    /// An empty message.
    explicit RawMessage(Type type);

    /// A message that holds a copy of the `length` bytes at `data`; null will do for none.
    RawMessage(const char* data, unsigned int length, Type type);

    RawMessage(const RawMessage&) = default;                 ///< Deep.
    RawMessage(RawMessage&&) noexcept = default;             ///< Leaves an empty message of the same type behind.
    RawMessage& operator=(const RawMessage&) = default;      ///< Deep; takes over the type too.
    RawMessage& operator=(RawMessage&&) noexcept = default;  ///< Takes over the type too.
    virtual ~RawMessage();

    /// The type that the message was made with.
    Type getType() const;

    /// Byte 0, the protocol number of a message body; 0 when the message is empty.
    unsigned int getProtocol() const;

    /// Byte 1, the sub-protocol number of a message body; 0 when there is none.
    unsigned int getSubprotocol() const;

    /// @name Readers
    /// Each reads at `index` and leaves the message unchanged. Their guards are one byte generous, on purpose: they
    /// compare the index plus the width minus one with the size, so a number whose last byte lies just past the end is
    /// still read, with that byte counting as 0. Any index beyond that reads 0.
    /// @{
    std::uint16_t getWord(unsigned int index) const;       ///< Two bytes.
    unsigned int getDoubleWord(unsigned int index) const;  ///< Four bytes.
    int getInt(unsigned int index) const;                  ///< Four bytes, as a two's-complement number.
    /// The float whose IEEE 754 single-precision bits stand at `index`.
    float getFloat(unsigned int index) const;
    /// @}

    /// Overwrites the four bytes from `index` on. Does nothing unless `index` + 4 is less than the size: strict on
    /// purpose, so a word that would end at the last byte is left alone, and short frames rely on it.
    void writeAt(unsigned int index, unsigned int value);

    /// Overwrites the byte at `index`; does nothing when there is no such byte.
    void writeAt(unsigned int index, unsigned char value);

    /// @name Appending
    /// Each appends at the end, most significant byte first.
    /// @throw std::bad_alloc, std::length_error  the message is then unchanged.
    /// @{
    void write(unsigned char value);  ///< One byte.
    void write(unsigned int value);   ///< Four bytes.
    void write(int value);            ///< Four bytes, two's complement.
    /// The four bytes of the value's IEEE 754 single-precision bits.
    void write(float value);
    /// `length` bytes from `data`. A length is read as a signed 32-bit number, on purpose: 0 and everything with the
    /// top bit set append nothing.
    void write(const char* data, unsigned int length);
    /// @}

    /// Prints the bytes on `stdout`, for debugging: "0x%02x " each, and a newline after every fourth.
    void show() const;

  protected:
    /// Constant, but for messages that are used again.
    Type type;
};

}  // namespace com_tesk
