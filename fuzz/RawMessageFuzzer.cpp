// Compares RawMessage with a plain vector of bytes. The input is a sequence of operations: a byte that selects one,
// then its arguments.

#include <cstring>
#include <utility>

#include "fuzz/Fuzzing.h"
#include "message/RawMessage.h"

using com_tesk::RawMessage;
using com_tesk::fuzz::Bytes;
using com_tesk::fuzz::Input;

namespace {

/// Larger messages do not grow any more, so that every input stays fast.
constexpr std::size_t kMaxSize = 600;

enum Operation {
    APPEND_BYTE,
    APPEND_UNSIGNED,
    APPEND_INT,
    APPEND_FLOAT,
    APPEND_BYTES,
    APPEND_NEGATIVE_LENGTH,
    OVERWRITE_BYTE,
    OVERWRITE_WORD,
    READ,
    COPY,
    MOVE,
    CLEAR,
    RESIZE,
    OPERATIONS
};

const char* asChars(const Bytes& bytes) {
    return reinterpret_cast<const char*>(bytes.data());
}

void appendBigEndian(Bytes& bytes, std::uint32_t value) {
    for (const unsigned int shift : {24U, 16U, 8U, 0U}) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

/// Returns what a reader of `width` bytes must return. Its last byte may be just after the end, and counts as 0 there.
std::uint32_t expectedAt(const Bytes& bytes, std::uint64_t index, unsigned int width) {
    if (index + width > bytes.size() + 1) {
        return 0;
    }
    std::uint32_t value = 0;
    for (std::uint64_t i = index; i < index + width; ++i) {
        value = value << 8U | (i < bytes.size() ? bytes[static_cast<std::size_t>(i)] : 0U);
    }
    return value;
}

std::uint32_t bitsOf(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

float floatOf(std::uint32_t bits) {
    float value = 0.0F;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

/// Returns an index: near the end of the message, where the bounds checks are, or anywhere.
std::uint32_t index(Input& input, std::size_t size) {
    const std::uint8_t way = input.byte();
    return way < 0x80 ? static_cast<std::uint32_t>(size) + way - 0x40 : input.word();
}

void checkReaders(const RawMessage& message, const Bytes& model, std::uint32_t at) {
    const std::uint32_t word = expectedAt(model, at, 4);
    CSCLIENT_FUZZ_CHECK(message.getWord(at) == expectedAt(model, at, 2));
    CSCLIENT_FUZZ_CHECK(message.getDoubleWord(at) == word);
    CSCLIENT_FUZZ_CHECK(static_cast<std::uint32_t>(message.getInt(at)) == word);
    CSCLIENT_FUZZ_CHECK(bitsOf(message.getFloat(at)) == word);
}

void checkWhole(const RawMessage& message, const Bytes& model, RawMessage::Type type) {
    CSCLIENT_FUZZ_CHECK(message.getType() == type);
    CSCLIENT_FUZZ_CHECK(message.size() == model.size());
    CSCLIENT_FUZZ_CHECK(std::equal(model.begin(), model.end(), message.begin(),
                                   [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }));
    CSCLIENT_FUZZ_CHECK(message.getProtocol() == (model.empty() ? 0U : model[0]));
    CSCLIENT_FUZZ_CHECK(message.getSubprotocol() == (model.size() < 2 ? 0U : model[1]));
}

void append(Operation operation, Input& input, RawMessage& message, Bytes& model) {
    if (model.size() > kMaxSize) {
        return;
    }
    if (operation == APPEND_BYTE) {
        const std::uint8_t value = input.byte();
        message.write(value);
        model.push_back(value);
        return;
    }
    if (operation == APPEND_BYTES) {
        const Bytes bytes = input.countedBytes();
        message.write(asChars(bytes), static_cast<unsigned int>(bytes.size()));
        model.insert(model.end(), bytes.begin(), bytes.end());
        return;
    }
    const std::uint32_t value = input.word();
    if (operation == APPEND_UNSIGNED) {
        message.write(static_cast<unsigned int>(value));
    } else if (operation == APPEND_INT) {
        message.write(static_cast<int>(value));
    } else {
        message.write(floatOf(value));
    }
    appendBigEndian(model, value);
}

void overwriteWord(Input& input, RawMessage& message, Bytes& model) {
    const std::uint32_t at = index(input, model.size());
    const std::uint32_t value = input.word();
    message.writeAt(at, static_cast<unsigned int>(value));
    if (std::uint64_t{at} + 4 < model.size()) {
        Bytes bytes;
        appendBigEndian(bytes, value);
        std::copy(bytes.begin(), bytes.end(), model.begin() + at);
    }
}

void overwriteByte(Input& input, RawMessage& message, Bytes& model) {
    const std::uint32_t at = index(input, model.size());
    const std::uint8_t value = input.byte();
    message.writeAt(at, value);
    if (at < model.size()) {
        model[at] = value;
    }
}

void perform(Operation operation, Input& input, RawMessage& message, Bytes& model) {
    switch (operation) {
        case APPEND_BYTE:
        case APPEND_UNSIGNED:
        case APPEND_INT:
        case APPEND_FLOAT:
        case APPEND_BYTES:
            append(operation, input, message, model);
            break;
        case APPEND_NEGATIVE_LENGTH:
            message.write("", 0x80000000U | input.word());
            break;
        case OVERWRITE_BYTE:
            overwriteByte(input, message, model);
            break;
        case OVERWRITE_WORD:
            overwriteWord(input, message, model);
            break;
        case READ:
            checkReaders(message, model, index(input, model.size()));
            break;
        case COPY: {
            const RawMessage copy(message);
            message.clear();
            message = copy;
            break;
        }
        case MOVE: {
            RawMessage moved(std::move(message));
            message = std::move(moved);
            break;
        }
        case CLEAR:
            message.clear();
            model.clear();
            break;
        case RESIZE: {
            // This shrinks or grows the message. After shrinking, the byte just after the end is an old one.
            const std::size_t size = input.byte();
            message.resize(size);
            model.resize(size);
            break;
        }
        case OPERATIONS:
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto type = static_cast<RawMessage::Type>(input.byte() % 3);
    Bytes model = input.countedBytes();
    RawMessage message(asChars(model), static_cast<unsigned int>(model.size()), type);
    checkWhole(message, model, type);
    while (!input.empty()) {
        perform(static_cast<Operation>(input.byte() % OPERATIONS), input, message, model);
        checkWhole(message, model, type);
        for (std::uint32_t before = 0; before < 6; ++before) {
            checkReaders(message, model, static_cast<std::uint32_t>(model.size()) - before);
        }
    }
    return 0;
}
