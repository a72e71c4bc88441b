// Compares the tables of the page on the wire format with the constants of the library's layouts and with the page's examples.

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "message/FrameLayout.h"
#include "simulator/MessageLayout.h"
#include "tests/docs/ManualPage.h"
#include "tests/support/Hex.h"

namespace com_tesk::test {
namespace {

using Constants = std::map<std::string, unsigned long>;

/// The value of a sum of products of numbers and of constants, which are of the namespace `space` or of those around it.
unsigned long valueOf(const std::string& code, const std::string& space, const Constants& constants) {
    const std::size_t plus = code.rfind(" + ");
    if (plus != std::string::npos) {
        return valueOf(code.substr(0, plus), space, constants) + valueOf(code.substr(plus + 3), space, constants);
    }
    const std::size_t times = code.rfind(" * ");
    if (times != std::string::npos) {
        return valueOf(code.substr(0, times), space, constants) * valueOf(code.substr(times + 3), space, constants);
    }
    if (std::isdigit(static_cast<unsigned char>(code.front())) != 0) {
        return std::stoul(code, nullptr, 0);
    }
    for (const std::string& name : {space + code, "layout::" + code}) {
        if (constants.count(name) != 0) {
            return constants.at(name);
        }
    }
    return constants.at(code);
}

/// The constants of both layouts, with their namespaces inside com_tesk.
const Constants& constants() {
    static const Constants all = [] {
        const std::regex opening("namespace (?:com_tesk::)?(\\w+) \\{");
        const std::regex closing("\\}  // namespace [\\w:]+");
        const std::regex constant("constexpr [\\w:]+(?: \\w+)? (k\\w+) = (.*);");
        std::istringstream lines(sourceFile("message/FrameLayout.h") + sourceFile("simulator/MessageLayout.h"));
        Constants found;
        std::vector<std::string> spaces{""};
        for (std::string line; std::getline(lines, line);) {
            std::smatch match;
            if (std::regex_match(line, match, opening)) {
                spaces.push_back(spaces.back() + match[1].str() + "::");
            } else if (std::regex_match(line, closing)) {
                spaces.pop_back();
            } else if (std::regex_match(line, match, constant)) {
                found[spaces.back() + match[1].str()] = valueOf(match[2], spaces.back(), found);
            }
        }
        return found;
    }();
    return all;
}

/// Offset and size of each row of a table of fields.
struct Fields {
    unsigned long begin = 0;
    unsigned long end = 0;
    /// Where the count stands; 0 without one.
    unsigned long count = 0;
};

/// Fails the test where a field does not begin at the end of the one before.
Fields fieldsOf(const ManualTable& table, const std::string& where) {
    Fields fields;
    fields.begin = fields.end = std::stoul(table.rows.at(0).at(0));
    for (const std::vector<std::string>& row : table.rows) {
        const unsigned long size = std::stoul(row.at(1));
        const std::string& type = row.at(2);
        EXPECT_EQ(std::stoul(row.at(0)), fields.end) << where << ": " << row.at(3);
        EXPECT_TRUE((size == 4 && (type == "word" || type == "value")) || (size == 2 && type == "half word") ||
                    (size == 1 && type == "byte") || type == "bytes" || type == "text")
            << where << ": " << row.at(3);
        if (row.at(3) == "count") {
            fields.count = fields.end;
        }
        fields.end += size;
    }
    return fields;
}

/// The tables of fields under a heading.
std::vector<Fields> allFieldsOf(const ManualSection& section) {
    std::vector<Fields> found;
    for (const ManualTable& table : section.tables()) {
        if (table.columns.at(0) == "Offset") {
            found.push_back(fieldsOf(table, section.heading));
        }
    }
    return found;
}

TEST(WireTables, NameEveryConstantOfTheLayoutsWithItsValue) {
    Constants onThePage;
    for (const ManualSection& section : manualPage("wire.md")) {
        for (const ManualTable& table : section.tables()) {
            for (const std::vector<std::string>& row : table.rows) {
                for (const std::string& name : codeSpans(row.back())) {
                    const unsigned long number = std::stoul(row.front(), nullptr, 0);
                    ASSERT_EQ(constants().count(name), 1U) << name;
                    EXPECT_EQ(number, constants().at(name)) << name << ", under: " << section.heading;
                    onThePage[name] = number;
                }
            }
        }
    }
    EXPECT_EQ(onThePage, constants());
    EXPECT_EQ(constants().at("frame::kBodyLengthOffset"), frame::kBodyLengthOffset);
    EXPECT_EQ(constants().at("layout::kRequestFieldsOffset"), layout::kRequestFieldsOffset);
    EXPECT_EQ(constants().at("layout::input_subscription::kRecordLength"), layout::input_subscription::kRecordLength);
    EXPECT_GT(constants().size(), 45U);
}

TEST(WireTables, HeadersAreCompleteAndMessagesContinueAfterThem) {
    std::map<std::string, std::vector<Fields>> bySection;
    for (const ManualSection& section : manualPage("wire.md")) {
        bySection[section.heading] = allFieldsOf(section);
    }
    const auto& header = bySection.at("The frame header");
    ASSERT_EQ(header.size(), 1U);
    EXPECT_EQ(header[0].begin, 0U);
    EXPECT_EQ(header[0].end, frame::kHeaderLength);

    const auto& subHeader = bySection.at("The sub-header");
    ASSERT_EQ(subHeader.size(), 2U);
    EXPECT_EQ(subHeader[0].begin, 0U);
    EXPECT_EQ(subHeader[0].end, layout::kSubHeaderLength);
    EXPECT_EQ(subHeader[1].begin, layout::kSimulatorWordOffset);
    EXPECT_EQ(subHeader[1].end, layout::kSimulatorWordOffset + 4);
}

TEST(WireTables, EveryMessageHasATableAndAnExampleOfItsSize) {
    // Such as "Client 00 06: ...", and "1. Client 00 06: ..." for an example.
    static const std::regex heading("(\\d+\\. )?((?:Client|Host) ([0-9A-F]{2} [0-9A-F]{2})): .*");
    std::map<std::string, std::vector<Fields>> drawn;
    std::set<std::string> withTable;
    std::set<std::string> withExample;
    for (const ManualSection& section : manualPage("wire.md")) {
        SCOPED_TRACE(section.heading);
        std::smatch match;
        if (!std::regex_match(section.heading, match, heading)) {
            continue;
        }
        const std::string message = match[2];
        std::vector<Fields>& fields = drawn[message];
        if (match[1].matched) {
            ASSERT_EQ(withTable.count(message), 1U);
            withExample.insert(message);
            const Bytes bytes = hex(section.hexBytes());
            ASSERT_GT(bytes.size(), 44U);
            const Bytes body(bytes.begin() + 32, bytes.end());
            EXPECT_EQ(hexText(Bytes(body.begin() + 10, body.begin() + 12)), match[3].str());
            const unsigned long records = fields[0].count == 0 ? 0 : body.at(fields[0].count + 3) * fields[1].end;
            EXPECT_EQ(body.size(), fields[0].end + records);
            continue;
        }
        fields = allFieldsOf(section);
        withTable.insert(message);
        ASSERT_TRUE(fields.size() == 1 || fields.size() == 2);
        EXPECT_EQ(fields[0].begin, message == "Host 00 03" ? 12U : 16U);
        EXPECT_EQ(fields.size() == 2, fields[0].count != 0);
        if (fields.size() == 2) {
            const std::string announced = "Each record, " + std::to_string(fields[1].end) + " bytes";
            EXPECT_NE(section.text().find(announced), std::string::npos) << announced;
            EXPECT_EQ(fields[1].begin, 0U);
        }
    }
    EXPECT_EQ(withTable.size(), 10U);
    EXPECT_EQ(withTable, withExample);
}

}  // namespace
}  // namespace com_tesk::test
