#include "tests/host/RawBytes.h"

#include <cstdio>
#include <cstdlib>

namespace com_tesk::host_test {

namespace {

Bytes bigEndian(std::size_t number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%08zX", number);
    return hex(digits);
}

}  // namespace

Bytes hex(const std::string& text) {
    Bytes bytes;
    std::string digits;
    for (const char c : text) {
        if (c == ' ') {
            continue;
        }
        digits += c;
        if (digits.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::strtoul(digits.c_str(), nullptr, 16)));
            digits.clear();
        }
    }
    return bytes;
}

std::string text(const Bytes& bytes) {
    std::string result;
    for (const std::uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X ", unsigned{byte});
        result += digits;
    }
    if (!result.empty()) {
        result.pop_back();
    }
    return result;
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes zeros(std::size_t count) {
    return Bytes(count, 0);
}

Bytes nameField(const std::string& name) {
    Bytes field(name.begin(), name.end());
    field.resize(32, 0);
    return field;
}

Bytes frame(const Bytes& body) {
    return joined({bigEndian(32 + body.size()), hex("00000020 00000000 00000000"),
                   hex("FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"), body});
}

Bytes request(std::uint8_t code, const Bytes& rest) {
    return frame(joined({hex("04 02 7F FF"), bigEndian(12 + rest.size()), hex("00 7F 00"), Bytes{code}, rest}));
}

Bytes versionRequest() {
    return request(0x06, hex("00050000 00000000"));
}

Bytes subscribeFloat(const std::string& name) {
    return request(0x01, joined({hex("00050000 00000001 00002EE0 00002EE0 00000000"), nameField(name)}));
}

Bytes subscribeInteger(const std::string& name) {
    return request(0x01, joined({hex("00050000 00000001 00002EE0 00002EE0 00000001"), nameField(name)}));
}

Bytes registerFloat(const std::string& name) {
    return request(0x02, joined({hex("00050000 00000001 000004B0 00000000"), nameField(name)}));
}

Bytes registerInteger(const std::string& name) {
    return request(0x02, joined({hex("00050000 00000001 000004B0 00000001"), nameField(name)}));
}

Bytes publish(const std::string& idFlagValue) {
    return request(0x03, joined({hex("00050000 00000000 00000001"), hex(idFlagValue)}));
}

Bytes unsubscribe(const std::string& id) {
    return request(0x04, joined({hex("00050000 00000001"), hex(id)}));
}

Bytes unregister(const std::string& id) {
    return request(0x05, joined({hex("00050000 00000001"), hex(id)}));
}

Bytes update(const std::string& idFlagValue) {
    return frame(
        joined({hex("04 02 7F FF 00 00 00 24 00 7F 00 03"), hex("00050000 00000000 00000001"), hex(idFlagValue)}));
}

}  // namespace com_tesk::host_test
