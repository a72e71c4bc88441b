#include "tests/model/Step.h"

namespace com_tesk::test {

namespace {

void append(std::string& body, std::uint32_t word) {
    for (unsigned int shift = 32; shift > 0; shift -= 8) {
        body += static_cast<char>(word >> (shift - 8) & 0xFFU);
    }
}

void append(std::string& body, std::string field, std::size_t width) {
    field.resize(width, '\0');
    body += field;
}

std::string begin(char responseFlag, char code) {
    return std::string("\x04\x02\x7F\xFF\0\0\0\0\0\x7F", 10) + responseFlag + code;
}

/// What a host puts where nobody looks.
constexpr std::uint32_t kUnread = 0xDEADBEEF;

}  // namespace

std::string hostMessage(const Step& step) {
    std::string body;
    std::uint32_t dropped = 0;
    switch (step.kind) {
        case Step::BODY:
            return step.records.empty() ? body : step.records[0].name;
        case Step::CONFIRM_INPUTS:
        case Step::CONFIRM_OUTPUTS:
        case Step::UPDATE: {
            const bool isUpdate = step.kind == Step::UPDATE;
            body = isUpdate ? begin(0, 3) : begin(1, step.kind == Step::CONFIRM_INPUTS ? 1 : 2);
            append(body, kUnread);
            if (isUpdate) {
                append(body, kUnread);
            }
            const auto count = static_cast<std::uint32_t>(step.records.size());
            append(body, step.numbers[0] == Step::kTrueCount ? count : step.numbers[0]);
            dropped = step.numbers[1];
            break;
        }
        case Step::VERSION:
            body = begin(1, 6);
            append(body, (step.numbers[0] << 16U) + 0x1234U);
            append(body, step.records.empty() ? "" : step.records[0].name, 128);
            append(body, step.numbers[1]);
            append(body, step.numbers[2]);
            dropped = step.numbers[3];
            break;
        default:
            return body;
    }
    for (const Step::Record& record : step.records) {
        if (step.kind == Step::CONFIRM_INPUTS) {
            append(body, record.values[0]);
            append(body, kUnread);
            append(body, kUnread);
            append(body, record.values[1]);
            append(body, record.values[2]);
            append(body, record.name, 32);
        } else if (step.kind == Step::CONFIRM_OUTPUTS) {
            append(body, record.values[0]);
            append(body, kUnread);
            append(body, kUnread);
            append(body, kUnread);
            append(body, record.name, 32);
        } else if (step.kind == Step::UPDATE) {
            append(body, record.values[0]);
            append(body, record.values[1]);
            append(body, record.values[2]);
        }
    }
    body.resize(dropped < body.size() ? body.size() - dropped : 0);
    return body;
}

}  // namespace com_tesk::test
