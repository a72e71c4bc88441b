// Checks the page about the wire format. A client makes the calls that the page names, over a real socket, and both sides send the
// page's bytes. The tables are compared with the constants of the library's layouts and with the page's examples.

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <set>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/FrameLayout.h"
#include "message/RawMessage.h"
#include "simulator/MessageLayout.h"
#include "tests/docs/ManualPage.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

/// A call in the page's words, but for blanks, and the call itself.
#define CSCLIENT_CALL(...)                                                \
    {                                                                     \
        withoutBlanks(#__VA_ARGS__), [&] { EXPECT_EQ((__VA_ARGS__), 0); } \
    }

class WireConversation : public testing::Test {
  protected:
    WireConversation() { client.addCallbackInterface(&callbacks); }

    /// Makes the call that the section names; fails the test when it names none that is known here.
    void makeCallOf(const ManualSection& section) {
        const unsigned int port = host.port();
        const std::map<std::string, std::function<void()>> calls = {
            CSCLIENT_CALL(client.open("127.0.0.1", port, nullptr)),
            CSCLIENT_CALL(client.registerOutputParameter({"altitude", CSClient::TYPE_FLOAT})),
            CSCLIENT_CALL(client.publishParameter({"altitude", {1234.5F}, CSClient::TYPE_FLOAT})),
            CSCLIENT_CALL(client.registerInputParameters(
                {{"heading", CSClient::TYPE_INT, 1}, {"speed", CSClient::TYPE_FLOAT, 2}})),
            CSCLIENT_CALL(client.unregisterInputParameter("heading")),
            CSCLIENT_CALL(client.unregisterOutputParameter("altitude")),
            CSCLIENT_CALL(client.sendMessage(RawMessage("\1\2\3\4\5\6\7\10\11", 9, RawMessage::CONTROL))),
        };
        for (const std::string& span : codeSpans(withoutCodeBlock(section))) {
            const auto call = calls.find(withoutBlanks(span));
            if (call != calls.end()) {
                call->second();
                ++callsMade;
                return;
            }
        }
        FAIL() << "no call that is known, under: " << section.heading;
    }

    static std::string withoutCodeBlock(const ManualSection& section) {
        return std::regex_replace(section.text(), std::regex("```.*```"), "");
    }

    void clientSpeaks(const ManualSection& section) {
        makeCallOf(section);
        if (!peer) {
            peer = host.accept();
            ASSERT_TRUE(peer);
        }
        EXPECT_EQ(peer->receiveFrame(), section.hexBytes()) << section.heading;
        EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 1));
    }

    void hostSpeaks(const ManualSection& section) {
        ASSERT_TRUE(peer);
        peer->send(section.hexBytes());
        const std::string text = withoutCodeBlock(section);
        static const std::regex gives("`get(Server|Protocol)Version` gives `([^`]*)`");
        if (text.find("No callback is called.") != std::string::npos) {
            for (std::sregex_iterator match(text.begin(), text.end(), gives), end; match != end; ++match) {
                ((*match)[1] == "Server" ? serverVersion : protocolVersion) = (*match)[2];
            }
            return;
        }
        const std::size_t receive = text.find("Callbacks receive ");
        ASSERT_NE(receive, std::string::npos) << section.heading;
        const std::vector<std::string> received = codeSpans(text.substr(receive));
        EXPECT_FALSE(received.empty()) << section.heading;
        for (const std::string& line : received) {
            EXPECT_TRUE(callbacks.waitFor(line)) << line;
        }
    }

    void holdThePagesConversation() {
        static const std::regex numbered("(\\d+)\\. (Client|Host) .*");
        int steps = 0;
        for (const ManualSection& section : manualPage("wire.md")) {
            std::smatch match;
            if (std::regex_match(section.heading, match, numbered)) {
                EXPECT_EQ(std::stoi(match[1]), ++steps) << section.heading;
                match[2] == "Client" ? clientSpeaks(section) : hostSpeaks(section);
            } else if (section.heading == "A control frame") {
                clientSpeaks(section);
            }
            if (HasFatalFailure()) {
                return;
            }
        }
        EXPECT_EQ(steps, 10);
        EXPECT_EQ(callsMade, 7);
        EXPECT_FALSE(serverVersion.empty());
        EXPECT_EQ(client.getServerVersion(), serverVersion);
        EXPECT_EQ(std::to_string(client.getProtocolVersion()), protocolVersion);
        EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    }

    ScriptedHost host;
    RecordingCallbacks callbacks;
    SimClient client{5, CSClient::OPTION_SILENT};
    std::unique_ptr<ScriptedHost::Peer> peer;
    int callsMade = 0;
    std::string serverVersion;
    std::string protocolVersion;
};

TEST_F(WireConversation, IsHeldOverTheStandardTransport) {
    holdThePagesConversation();
}

TEST_F(WireConversation, IsHeldOverTheBufferedTransport) {
    ASSERT_TRUE(client.changeCommsInterface(new CSCommsInterfaceTCPBuffered));
    holdThePagesConversation();
}

std::uint32_t wordAt(const Bytes& bytes, std::size_t index) {
    return std::uint32_t{bytes.at(index)} << 24U | std::uint32_t{bytes.at(index + 1)} << 16U |
           std::uint32_t{bytes.at(index + 2)} << 8U | std::uint32_t{bytes.at(index + 3)};
}

/// Returns the note that `bytes` must have, made from the words of `note` that are not numbers.
std::string noteOf(const Bytes& bytes, const std::string& note, bool& isInteger) {
    std::smatch match;
    const auto matches = [&](const char* pattern) { return std::regex_match(note, match, std::regex(pattern)); };
    const auto number = [&bytes](std::size_t index) { return std::to_string(wordAt(bytes, index)); };
    if (matches("frame length .*")) {
        return "frame length " + number(0) + ", header length " + number(4) + ", " +
               (wordAt(bytes, 8) == 0 ? "data" : "control");
    }
    if (matches("sub-header: .*")) {
        return "sub-header: body length " + number(4) + ", message " +
               hexText(Bytes(bytes.begin() + 10, bytes.begin() + 12));
    }
    if (matches("simulator id .*")) {
        return "simulator id " + std::to_string(wordAt(bytes, 0) >> 16U);
    }
    if (matches("(id|mode|protocol version|always|status) \\d+(, accepted)?")) {
        return match[1].str() + " " + number(0) + match[2].str();
    }
    if (matches("\\d+ (record|id)s?")) {
        return number(0) + " " + match[1].str() + (wordAt(bytes, 0) == 1 ? "" : "s");
    }
    if (matches("(mode \\d+: rate code) \\d+, twice")) {
        EXPECT_EQ(wordAt(bytes, 0), wordAt(bytes, 4));
        return match[1].str() + " " + number(0) + ", twice";
    }
    if (matches("integer flag: .*")) {
        isInteger = wordAt(bytes, 0) != 0;
        return isInteger ? "integer flag: an integer" : "integer flag: a float";
    }
    if (matches("-?[0-9.]+")) {
        std::uint32_t written = static_cast<std::uint32_t>(std::stol(note));
        if (!isInteger) {
            const float value = std::stof(note);
            std::memcpy(&written, &value, sizeof written);
        }
        return written == wordAt(bytes, 0) ? note : "another value";
    }
    return matches("not read|name|filler and end mark|version text, padded to 128 bytes|the body, untouched")
               ? note
               : "a note that this test does not know";
}

TEST(WireNotes, NumbersBesideTheBytesAreThoseInThem) {
    int notes = 0;
    for (const ManualSection& section : manualPage("wire.md")) {
        if (section.text().find("```") == std::string::npos) {
            continue;
        }
        bool isInteger = false;
        for (const std::string& line : section.codeBlock()) {
            const std::size_t separator = line.find("| ");
            if (separator != std::string::npos) {
                const std::string note = line.substr(separator + 2);
                EXPECT_EQ(note, noteOf(hex(line.substr(0, separator)), note, isInteger)) << section.heading;
                ++notes;
            }
        }
    }
    EXPECT_GT(notes, 80);
}

// The tables.

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
    const std::string inLayout = constants.count("layout::" + code) != 0 ? "layout::" + code : code;
    return constants.at(constants.count(space + code) != 0 ? space + code : inLayout);
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

/// The extent of a table of fields.
struct Fields {
    unsigned long begin = 0;
    unsigned long end = 0;
    unsigned long count = 0;  // The offset of the count; 0 without one.
};

/// Returns the tables of fields under a heading. Fails the test where a field does not begin at the end of the one before.
std::vector<Fields> allFieldsOf(const ManualSection& section) {
    std::vector<Fields> found;
    for (const ManualTable& table : section.tables()) {
        if (table.columns.at(0) != "Offset") {
            continue;
        }
        Fields fields;
        fields.begin = fields.end = std::stoul(table.rows.at(0).at(0));
        for (const std::vector<std::string>& row : table.rows) {
            EXPECT_EQ(std::stoul(row.at(0)), fields.end) << section.heading << ": " << row.at(3);
            EXPECT_TRUE(std::regex_match(row.at(1) + " " + row.at(2),
                                         std::regex("4 (word|value)|2 half word|1 byte|\\d+ (bytes|text)")))
                << section.heading << ": " << row.at(3);
            fields.count = row.at(3) == "count" ? fields.end : fields.count;
            fields.end += std::stoul(row.at(1));
        }
        found.push_back(fields);
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
    const auto expectExtent = [](const Fields& fields, unsigned long begin, unsigned long end) {
        EXPECT_EQ(fields.begin, begin);
        EXPECT_EQ(fields.end, end);
    };
    ASSERT_EQ(bySection["The frame header"].size(), 1U);
    expectExtent(bySection["The frame header"][0], 0, frame::kHeaderLength);
    ASSERT_EQ(bySection["The sub-header"].size(), 2U);
    expectExtent(bySection["The sub-header"][0], 0, layout::kSubHeaderLength);
    expectExtent(bySection["The sub-header"][1], layout::kSimulatorWordOffset, layout::kSimulatorWordOffset + 4);
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
