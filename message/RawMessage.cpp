#include "message/RawMessage.h"

#include <cstdio>
#include <cstring>

#include "message/BigEndian.h"

namespace com_tesk {

namespace {

constexpr std::size_t kWordWidth = 2;
constexpr std::size_t kDoubleWordWidth = 4;

static_assert(sizeof(float) == kDoubleWordWidth, "floats travel as 32 bits");

/// True when a reader may read `width` bytes at `index`. Intended: one byte past the end is still allowed.
bool isReadable(std::size_t size, std::size_t index, std::size_t width) {
    return size >= width - 1 && index <= size - (width - 1);
}

/// Returns the byte at `index`; the byte just past the end counts as 0.
unsigned int byteAt(const std::vector<char>& bytes, std::size_t index) {
    return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0U;
}

}  // namespace

RawMessage::RawMessage(Type messageType) : type(messageType) {}

RawMessage::RawMessage(const char* data, unsigned int length, Type messageType)
    : std::vector<char>(data, data + length), type(messageType) {}

RawMessage::~RawMessage() = default;

RawMessage::Type RawMessage::getType() const {
    return type;
}

unsigned int RawMessage::getProtocol() const {
    return byteAt(*this, 0);
}

unsigned int RawMessage::getSubprotocol() const {
    return byteAt(*this, 1);
}

std::uint16_t RawMessage::getWord(unsigned int index) const {
    if (!isReadable(size(), index, kWordWidth)) {
        return 0;
    }
    const std::size_t at = index;
    return static_cast<std::uint16_t>(byteAt(*this, at) << 8U | byteAt(*this, at + 1));
}

unsigned int RawMessage::getDoubleWord(unsigned int index) const {
    const std::size_t at = index;
    if (at < size() && size() - at >= kDoubleWordWidth) {
        return big_endian::wordAt(data() + at);
    }
    if (!isReadable(size(), at, kDoubleWordWidth)) {
        return 0;
    }
    return byteAt(*this, at) << 24U | byteAt(*this, at + 1) << 16U | byteAt(*this, at + 2) << 8U |
           byteAt(*this, at + 3);
}

int RawMessage::getInt(unsigned int index) const {
    return static_cast<int>(getDoubleWord(index));
}

float RawMessage::getFloat(unsigned int index) const {
    const unsigned int bits = getDoubleWord(index);
    float value = 0.0F;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

void RawMessage::writeAt(unsigned int index, unsigned int value) {
    if (size() <= kDoubleWordWidth || index >= size() - kDoubleWordWidth) {
        return;
    }
    big_endian::putWord(data() + index, value);
}

void RawMessage::writeAt(unsigned int index, unsigned char value) {
    if (index < size()) {
        (*this)[index] = static_cast<char>(value);
    }
}

void RawMessage::write(unsigned char value) {
    push_back(static_cast<char>(value));
}

void RawMessage::write(unsigned int value) {
    char bytes[kDoubleWordWidth];
    big_endian::putWord(bytes, value);
    insert(end(), bytes, bytes + sizeof bytes);
}

void RawMessage::write(int value) {
    write(static_cast<unsigned int>(value));
}

void RawMessage::write(float value) {
    unsigned int bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    write(bits);
}

void RawMessage::write(const char* data, unsigned int length) {
    if (static_cast<std::int32_t>(length) > 0) {
        insert(end(), data, data + length);
    }
}

void RawMessage::show() const {
    constexpr std::size_t kBytesPerLine = 4;
    for (std::size_t i = 0; i < size(); ++i) {
        std::printf("0x%02x ", byteAt(*this, i));
        if (i % kBytesPerLine == kBytesPerLine - 1) {
            std::printf("\n");
        }
    }
}

}  // namespace com_tesk
