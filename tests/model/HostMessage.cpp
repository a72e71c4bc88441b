#include "tests/model/Step.h"

namespace com_tesk::test {

namespace {

/// What a host writes into fields that the client does not read.
const std::string kUnread = "\xDE\xAD\xBE\xEF";

std::string begin(char responseFlag, char code) {
    return std::string("\x04\x02\x7F\xFF\0\0\0\0\0\x7F", 10) + responseFlag + code;
}

std::string withRecords(const Step& step, std::string body) {
    const auto count = static_cast<std::uint32_t>(step.records.size());
    body += wireWord(step.numbers[0] == Step::kTrueCount ? count : step.numbers[0]);
    for (const Step::Record& record : step.records) {
        body += wireWord(record.values[0]);
        if (step.kind != Step::UPDATE) {
            body += kUnread + kUnread;
        }
        if (step.kind == Step::CONFIRM_OUTPUTS) {
            body += kUnread;
        } else {
            body += wireWord(record.values[1]) + wireWord(record.values[2]);
        }
        if (step.kind != Step::UPDATE) {
            body += wireField(record.name, 32);
        }
    }
    return body;
}

std::string cut(const std::string& body, std::uint32_t dropped) {
    return body.substr(0, dropped < body.size() ? body.size() - dropped : 0);
}

}  // namespace

std::string wireWord(std::uint32_t value) {
    return {static_cast<char>(value >> 24U), static_cast<char>(value >> 16U), static_cast<char>(value >> 8U),
            static_cast<char>(value)};
}

std::string wireField(std::string text, std::size_t width) {
    text.resize(width, '\0');
    return text;
}

std::vector<std::string> namesOf(const std::vector<Step::Record>& records) {
    std::vector<std::string> names;
    for (const Step::Record& record : records) {
        names.push_back(record.name);
    }
    return names;
}

std::string hostMessage(const Step& step) {
    const std::string text = step.records.empty() ? "" : step.records[0].name;
    switch (step.kind) {
        case Step::CONFIRM_INPUTS:
            return cut(withRecords(step, begin(1, 1) + kUnread), step.numbers[1]);
        case Step::CONFIRM_OUTPUTS:
            return cut(withRecords(step, begin(1, 2) + kUnread), step.numbers[1]);
        case Step::UPDATE:
            return cut(withRecords(step, begin(0, 3) + kUnread + kUnread), step.numbers[1]);
        case Step::VERSION:
            return cut(begin(1, 6) + wireWord((step.numbers[0] << 16U) + 0x1234U) + wireField(text, 128) +
                           wireWord(step.numbers[1]) + wireWord(step.numbers[2]),
                       step.numbers[3]);
        default:
            return text;
    }
}

}  // namespace com_tesk::test
