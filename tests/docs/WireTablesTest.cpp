// The tables of the page on the wire format, beside the constants that the library reads and writes by, and beside the
// page's own examples.

#include <gtest/gtest.h>

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

#define CSCLIENT_CONSTANT(name) \
    { #name, static_cast < unsigned long>(name) }

const std::map<std::string, unsigned long>& constants() {
    static const std::map<std::string, unsigned long> values = {
        CSCLIENT_CONSTANT(frame::kHeaderLength),
        CSCLIENT_CONSTANT(frame::kFrameLengthOffset),
        CSCLIENT_CONSTANT(frame::kHeaderLengthOffset),
        CSCLIENT_CONSTANT(frame::kKindOffset),
        CSCLIENT_CONSTANT(frame::kSubKindOffset),
        CSCLIENT_CONSTANT(frame::kEndMarkOffset),
        CSCLIENT_CONSTANT(frame::kKindData),
        CSCLIENT_CONSTANT(frame::kKindControl),
        CSCLIENT_CONSTANT(frame::kSubKindControl),
        CSCLIENT_CONSTANT(frame::kEndMarkControl),
        CSCLIENT_CONSTANT(frame::kBodyLengthOffset),
        CSCLIENT_CONSTANT(layout::kSubHeaderLength),
        CSCLIENT_CONSTANT(layout::kMessageCodeOffset),
        CSCLIENT_CONSTANT(layout::kSimulatorWordOffset),
        CSCLIENT_CONSTANT(layout::kSimulatorIdShift),
        CSCLIENT_CONSTANT(layout::kProtocol),
        CSCLIENT_CONSTANT(layout::kSubprotocol),
        CSCLIENT_CONSTANT(layout::kNameLength),
        CSCLIENT_CONSTANT(layout::kWordLength),
        CSCLIENT_CONSTANT(layout::kInputSubscriptionConfirmed),
        CSCLIENT_CONSTANT(layout::kOutputRegistrationConfirmed),
        CSCLIENT_CONSTANT(layout::kUpdate),
        CSCLIENT_CONSTANT(layout::kVersion),
        CSCLIENT_CONSTANT(layout::kCountOffset),
        CSCLIENT_CONSTANT(layout::kRecordsOffset),
        CSCLIENT_CONSTANT(layout::kRequestFieldsOffset),
        CSCLIENT_CONSTANT(layout::input_subscription::kRecordLength),
        CSCLIENT_CONSTANT(layout::output_registration::kRecordLength),
        CSCLIENT_CONSTANT(layout::output_registration::kRate),
        CSCLIENT_CONSTANT(layout::publication::kRecordLength),
        CSCLIENT_CONSTANT(layout::input_confirmation::kRecordLength),
        CSCLIENT_CONSTANT(layout::input_confirmation::kId),
        CSCLIENT_CONSTANT(layout::input_confirmation::kIntegerFlag),
        CSCLIENT_CONSTANT(layout::input_confirmation::kValue),
        CSCLIENT_CONSTANT(layout::input_confirmation::kName),
        CSCLIENT_CONSTANT(layout::output_confirmation::kRecordLength),
        CSCLIENT_CONSTANT(layout::output_confirmation::kId),
        CSCLIENT_CONSTANT(layout::output_confirmation::kName),
        CSCLIENT_CONSTANT(layout::update::kUpdateCountOffset),
        CSCLIENT_CONSTANT(layout::update::kUpdateRecordsOffset),
        CSCLIENT_CONSTANT(layout::update::kRecordLength),
        CSCLIENT_CONSTANT(layout::update::kId),
        CSCLIENT_CONSTANT(layout::update::kIntegerFlag),
        CSCLIENT_CONSTANT(layout::update::kValue),
        CSCLIENT_CONSTANT(layout::version::kTextOffset),
        CSCLIENT_CONSTANT(layout::version::kTextLength),
        CSCLIENT_CONSTANT(layout::version::kProtocolVersionOffset),
        CSCLIENT_CONSTANT(layout::version::kStatusOffset),
        CSCLIENT_CONSTANT(layout::version::kAccepted),
    };
    return values;
}

std::set<std::string> namesOf(const std::map<std::string, unsigned long>& values) {
    std::set<std::string> names;
    for (const auto& nameAndValue : values) {
        names.insert(nameAndValue.first);
    }
    return names;
}

/// The names of the constants that a header defines, with their namespaces inside com_tesk.
void addConstantsOf(const std::string& header, std::set<std::string>& names) {
    static const std::regex opening("namespace com_tesk::(\\w+) \\{|namespace (\\w+) \\{");
    static const std::regex closing("\\}  // namespace [\\w:]+");
    static const std::regex constant("constexpr [\\w:]+(?: \\w+)? (k\\w+) = .*");
    std::istringstream lines(sourceFile(header));
    std::vector<std::string> spaces;
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_match(line, match, opening)) {
            spaces.push_back(match[1].str() + match[2].str());
        } else if (std::regex_match(line, closing)) {
            spaces.pop_back();
        } else if (std::regex_match(line, match, constant)) {
            std::string name;
            for (const std::string& space : spaces) {
                name += space + "::";
            }
            names.insert(name + match[1].str());
        }
    }
}

/// Offset and size of each row of a table of fields.
struct Fields {
    unsigned long begin = 0;
    unsigned long end = 0;
    /// Where the count stands; 0 without one.
    unsigned long count = 0;
};

bool isTableOfFields(const ManualTable& table) {
    return table.columns.at(0) == "Offset";
}

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

/// The side and the code in a heading such as "Client 00 06: ..." or "1. Client 00 06: ...".
struct MessageHeading {
    explicit MessageHeading(const std::string& heading) {
        static const std::regex pattern("(\\d+\\. )?((?:Client|Host) [0-9A-F]{2} [0-9A-F]{2}): .*");
        std::smatch match;
        if (std::regex_match(heading, match, pattern)) {
            isExample = match[1].matched;
            message = match[2];
        }
    }
    bool isExample = false;
    std::string message;
};

TEST(WireTables, EveryConstantOfTheLayoutsIsKnownHere) {
    std::set<std::string> names;
    addConstantsOf("message/FrameLayout.h", names);
    addConstantsOf("simulator/MessageLayout.h", names);
    EXPECT_EQ(names, namesOf(constants()));
}

TEST(WireTables, EveryConstantStandsOnThePageWithItsValue) {
    std::map<std::string, unsigned long> onThePage;
    for (const ManualSection& section : manualPage("wire.md")) {
        for (const ManualTable& table : section.tables()) {
            for (const std::vector<std::string>& row : table.rows) {
                for (const std::string& name : codeSpans(row.back())) {
                    const unsigned long number = std::stoul(row.front(), nullptr, 0);
                    const auto known = constants().find(name);
                    ASSERT_NE(known, constants().end()) << name;
                    EXPECT_EQ(number, known->second) << name << ", under: " << section.heading;
                    onThePage[name] = number;
                }
            }
        }
    }
    EXPECT_EQ(onThePage, constants());
}

TEST(WireTables, HeadersAreWholeAndMessagesGoOnBehindThem) {
    std::map<std::string, std::vector<Fields>> bySection;
    for (const ManualSection& section : manualPage("wire.md")) {
        for (const ManualTable& table : section.tables()) {
            if (isTableOfFields(table)) {
                bySection[section.heading].push_back(fieldsOf(table, section.heading));
            }
        }
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

TEST(WireTables, EveryMessageHasATableAndAnExampleOfThatSize) {
    struct Drawn {
        Fields body;
        Fields record;
    };
    std::map<std::string, Drawn> drawn;
    std::set<std::string> withExample;
    for (const ManualSection& section : manualPage("wire.md")) {
        const MessageHeading heading(section.heading);
        if (heading.message.empty()) {
            continue;
        }
        if (!heading.isExample) {
            std::vector<Fields> found;
            for (const ManualTable& table : section.tables()) {
                if (isTableOfFields(table)) {
                    found.push_back(fieldsOf(table, section.heading));
                }
            }
            ASSERT_TRUE(found.size() == 1 || found.size() == 2) << section.heading;
            const unsigned long begin = heading.message == "Host 00 03" ? 12 : 16;
            EXPECT_EQ(found[0].begin, begin) << section.heading;
            EXPECT_EQ(found.size() == 2, found[0].count != 0) << section.heading;
            Drawn& message = drawn[heading.message];
            message.body = found[0];
            if (found.size() == 2) {
                message.record = found[1];
                const std::string announced = "Each record, " + std::to_string(found[1].end) + " bytes";
                EXPECT_NE(section.text().find(announced), std::string::npos) << announced;
                EXPECT_EQ(found[1].begin, 0U) << section.heading;
            }
            continue;
        }
        ASSERT_EQ(drawn.count(heading.message), 1U) << section.heading;
        withExample.insert(heading.message);
        const Drawn& message = drawn[heading.message];
        const Bytes bytes = hex(section.hexBytes());
        ASSERT_GT(bytes.size(), 44U) << section.heading;
        const Bytes body(bytes.begin() + 32, bytes.end());
        EXPECT_EQ(hexText(Bytes(body.begin() + 10, body.begin() + 12)),
                  heading.message.substr(heading.message.size() - 5));
        const unsigned long count = message.body.count == 0 ? 0 : body.at(message.body.count + 3);
        EXPECT_EQ(body.size(), message.body.end + count * message.record.end) << section.heading;
    }
    std::set<std::string> withTable;
    for (const auto& messageAndTables : drawn) {
        withTable.insert(messageAndTables.first);
    }
    EXPECT_EQ(withTable.size(), 10U);
    EXPECT_EQ(withTable, withExample);
}

}  // namespace
}  // namespace com_tesk::test
