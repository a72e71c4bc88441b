// What stands behind the bars of the page's bytes says what the bytes are.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <regex>
#include <string>

#include "tests/docs/ManualPage.h"
#include "tests/support/Hex.h"

namespace com_tesk::test {
namespace {

std::uint32_t wordAt(const Bytes& bytes, std::size_t index) {
    return std::uint32_t{bytes.at(index)} << 24U | std::uint32_t{bytes.at(index + 1)} << 16U |
           std::uint32_t{bytes.at(index + 2)} << 8U | std::uint32_t{bytes.at(index + 3)};
}

/// What the note beside `bytes` must be, by those of its words that are not numbers.
std::string noteOf(const Bytes& bytes, const std::string& note, bool& isInteger) {
    const auto number = [&bytes](std::size_t index) { return std::to_string(wordAt(bytes, index)); };
    if (std::regex_match(note, std::regex("frame length .*"))) {
        return "frame length " + number(0) + ", header length " + number(4) + ", " +
               (wordAt(bytes, 8) == 0 ? "data" : "control");
    }
    if (std::regex_match(note, std::regex("sub-header: .*"))) {
        return "sub-header: body length " + number(4) + ", message " +
               hexText(Bytes(bytes.begin() + 10, bytes.begin() + 12));
    }
    if (std::regex_match(note, std::regex("simulator id .*"))) {
        return "simulator id " + std::to_string(wordAt(bytes, 0) >> 16U);
    }
    std::smatch match;
    if (std::regex_match(note, match, std::regex("(id|mode|protocol version|always) \\d+"))) {
        return match[1].str() + " " + number(0);
    }
    if (std::regex_match(note, match, std::regex("\\d+ (record|id)s?"))) {
        return number(0) + " " + match[1].str() + (wordAt(bytes, 0) == 1 ? "" : "s");
    }
    if (std::regex_match(note, match, std::regex("(mode \\d+: rate code) \\d+, twice"))) {
        EXPECT_EQ(wordAt(bytes, 0), wordAt(bytes, 4));
        return match[1].str() + " " + number(0) + ", twice";
    }
    if (std::regex_match(note, std::regex("integer flag: .*"))) {
        isInteger = wordAt(bytes, 0) != 0;
        return isInteger ? "integer flag: an integer" : "integer flag: a float";
    }
    if (std::regex_match(note, std::regex("-?[0-9.]+"))) {
        const std::uint32_t bits = wordAt(bytes, 0);
        std::uint32_t written = static_cast<std::uint32_t>(std::stol(note));
        if (!isInteger) {
            const float value = std::stof(note);
            std::memcpy(&written, &value, sizeof written);
        }
        return written == bits ? note : "another value";
    }
    if (note == "status 1, accepted") {
        return "status " + number(0) + ", accepted";
    }
    const bool isWithoutNumbers = note == "not read" || note == "name" || note == "filler and end mark" ||
                                  note == "version text, padded to 128 bytes" || note == "the body, untouched";
    return isWithoutNumbers ? note : "a note that this test does not know";
}

TEST(WireNotes, NumbersBesideTheBytesAreThoseInThem) {
    int notes = 0;
    for (const ManualSection& section : manualPage("wire.md")) {
        if (section.text().find("```") == std::string::npos) {
            continue;
        }
        bool isInteger = false;
        for (const std::string& line : section.codeBlock()) {
            const std::size_t bar = line.find("| ");
            if (bar != std::string::npos) {
                const std::string note = line.substr(bar + 2);
                EXPECT_EQ(note, noteOf(hex(line.substr(0, bar)), note, isInteger)) << section.heading;
                ++notes;
            }
        }
    }
    EXPECT_GT(notes, 80);
}

}  // namespace
}  // namespace com_tesk::test
