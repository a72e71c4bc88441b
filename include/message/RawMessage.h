#pragma once

#include <cstdint>
#include <vector>

#include "message/Export.h"

namespace com_tesk {

/// The bytes of one message, with big-endian readers and writers by byte index.
///
/// It is a `std::vector<char>`, so every vector operation is part of its interface. It also holds the kind of frame
/// that carries it. Copies are deep. Not synchronised: like a vector, one object belongs to one thread at a time.
///
/// Multi-byte numbers are big-endian on every host. Indexes are byte positions from the start of the buffer.
class CSCLIENT_EXPORT RawMessage : public std::vector<char> {
  public:
    /// The kind of frame that carries the message.
    enum Type : std::uint32_t {
        INVALID = 0,  ///< Received with a frame kind that is neither data nor control; never sent.
        DATA = 1,     ///< An ordinary message. When it is sent, its length is written into its bytes 4 to 7.
        CONTROL = 2,  ///< A control message.
    };

    /// Creates an empty message.
    explicit RawMessage(Type type);

    /// Creates a message that holds a copy of the `length` bytes at `data`; null is allowed when `length` is 0.
    RawMessage(const char* data, unsigned int length, Type type);

    RawMessage(const RawMessage&) = default;                 ///< Deep.
    RawMessage(RawMessage&&) noexcept = default;             ///< The source stays an empty message of its type.
    RawMessage& operator=(const RawMessage&) = default;      ///< Deep; takes over the type too.
    RawMessage& operator=(RawMessage&&) noexcept = default;  ///< Takes over the type too.
    virtual ~RawMessage();

    /// Returns the type of the message.
    Type getType() const;

    /// Returns byte 0, the protocol number of a message body; 0 when the message is empty.
    unsigned int getProtocol() const;

    /// Returns byte 1, the sub-protocol number of a message body; 0 when there is none.
    unsigned int getSubprotocol() const;

    /// @name Readers
    /// Each reads at `index` and leaves the message unchanged. A number may extend one byte past the end: that byte
    /// counts as 0. Intended: hosts rely on it. A number that extends further reads as 0.
    /// @{
    std::uint16_t getWord(unsigned int index) const;       ///< Two bytes.
    unsigned int getDoubleWord(unsigned int index) const;  ///< Four bytes.
    int getInt(unsigned int index) const;                  ///< Four bytes, as a two's-complement number.
    /// Returns the float whose IEEE 754 single-precision bits are at `index`.
    float getFloat(unsigned int index) const;
    /// @}

    /// Overwrites the four bytes from `index` on. Does nothing unless `index` + 4 is less than the size. Intended: a
    /// word that would end at the last byte stays unchanged, and short frames rely on it.
    void writeAt(unsigned int index, unsigned int value);

    /// Overwrites the byte at `index`; does nothing when there is no such byte.
    void writeAt(unsigned int index, unsigned char value);

    /// @name Appending
    /// Each appends at the end, most significant byte first.
    /// @throw std::bad_alloc, std::length_error  the message is unchanged.
    /// @{
    void write(unsigned char value);  ///< One byte.
    void write(unsigned int value);   ///< Four bytes.
    void write(int value);            ///< Four bytes, two's complement.
    /// The four bytes of the value's IEEE 754 single-precision bits.
    void write(float value);
    /// Appends `length` bytes from `data`. The length is read as a signed 32-bit number: 0 or a length above
    /// 2,147,483,647 appends nothing. Intended: callers rely on it.
    void write(const char* data, unsigned int length);
    /// @}

    /// Prints the bytes on `stdout`, for debugging: "0x%02x " each, and a newline after every fourth.
    void show() const;

  protected:
    /// Constant, except in messages that the library reuses.
    Type type;
};

}  // namespace com_tesk
