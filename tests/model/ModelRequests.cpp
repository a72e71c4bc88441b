#include "tests/model/Model.h"

namespace com_tesk::test {

namespace {

constexpr std::uint32_t kInteger = 2;
constexpr std::uint32_t kFloat = 1;

std::string word(std::uint32_t value) {
    return {static_cast<char>(value / 0x1000000), static_cast<char>(value / 0x10000 % 0x100),
            static_cast<char>(value / 0x100 % 0x100), static_cast<char>(value % 0x100)};
}

/// A name ends at its first zero byte here, whatever may follow in it.
std::string nameField(const std::string& name) {
    std::string field = name.substr(0, name.find('\0'));
    field.resize(32, '\0');
    return field;
}

std::string rate(std::uint32_t mode) {
    return word(mode == 1 ? 12000 : mode == 3 ? 120000 : 0);
}

std::string integerFlag(std::uint32_t type) {
    return word(type == kInteger ? 1 : 0);
}

std::string replaced(std::string bytes, std::size_t offset, const std::string& by) {
    return bytes.replace(offset, by.size(), by);
}

std::string headerFor(std::size_t bodySize) {
    return word(static_cast<std::uint32_t>(bodySize) + 32) + word(32) + word(0) + word(0) + std::string(16, '\xFF');
}

}  // namespace

std::string Model::begin(char code) const {
    return std::string("\x04\x02\x7F\xFF\0\0\0\0\0\x7F\0", 11) + code + word(simulatorId % 0x10000 * 0x10000);
}

std::uint32_t Model::sendInputSubscription(const std::vector<std::string>& names) {
    std::string body = begin(1) + word(static_cast<std::uint32_t>(names.size()));
    for (const std::string& name : names) {
        const Input& input = inputs[name];
        body += rate(input.mode) + rate(input.mode) + integerFlag(input.type) + nameField(name);
    }
    return names.empty() ? 0 : sendBatch(body);
}

std::uint32_t Model::sendOutputSubscription(const std::vector<std::string>& names) {
    std::string body = begin(2) + word(static_cast<std::uint32_t>(names.size()));
    for (const std::string& name : names) {
        body += word(1200) + integerFlag(outputs[name].type) + nameField(name);
    }
    return names.empty() ? 0 : sendBatch(body);
}

std::uint32_t Model::sendUnsubscription(char code, const std::vector<std::uint32_t>& ids) {
    std::string body = begin(code) + word(static_cast<std::uint32_t>(ids.size()));
    for (const std::uint32_t id : ids) {
        body += word(id);
    }
    return ids.empty() ? 0 : sendBatch(body);
}

std::uint32_t Model::sendPublication(const std::vector<std::string>& names, std::uint32_t mode) {
    std::string body = begin(3) + word(mode) + word(static_cast<std::uint32_t>(names.size()));
    for (const std::string& name : names) {
        const Output& output = outputs[name];
        body += word(output.id);
        if (output.type == kInteger || output.type == kFloat) {
            body += integerFlag(output.type) + word(output.bits);
        }
    }
    return names.empty() ? 0 : sendBatch(body);
}

std::uint32_t Model::sendBatch(const std::string& body) {
    const std::uint32_t result = sendData(body);
    return result == 1 ? 0 : result;
}

std::uint32_t Model::sendData(const std::string& body) {
    return sendRaw(1, body);
}

std::uint32_t Model::sendRaw(std::uint32_t type, const std::string& body) {
    if ((state != 2 && state != 4) || owesClose) {
        return 1;
    }
    std::string frame = headerFor(body.size()) + body;
    if (type == 0) {
        return 3;
    }
    if (type == 1 && body.size() >= 9) {
        frame = replaced(frame, 36, word(static_cast<std::uint32_t>(body.size())));
    }
    if (type == 2) {
        frame = replaced(replaced(replaced(frame, 8, word(3)), 12, word(2)), 31, "\xFE");
    }
    return write(frame);
}

std::uint32_t Model::write(const std::string& frame) {
    happen(Step::WRITING, 0);
    if (writeFailures.empty() || othersHoldChange) {
        log.push_back("sent " + frame);
        return 0;
    }
    const WriteFailure failure = writeFailures.front();
    writeFailures.pop_front();
    print("err", "Error writing to server (" + std::to_string(failure.error) + ") ");
    owesClose = true;
    payOwedClose();
    return 2;
}

}  // namespace com_tesk::test
