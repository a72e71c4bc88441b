// Checks the bytes on the page about the wire format. A client makes the calls that the page names, over a real socket, and both
// sides send the page's bytes. The notes next to the bytes say what the bytes are.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/RawMessage.h"
#include "tests/docs/ManualPage.h"
#include "tests/support/Hex.h"
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
        const std::string text = section.text();
        const std::size_t begin = text.find("```");
        const std::size_t end = text.rfind("```");
        return begin == std::string::npos ? text : text.substr(0, begin) + text.substr(end + 3);
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

/// The note that `bytes` must have, made from the words of `note` that are not numbers.
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

}  // namespace
}  // namespace com_tesk::test
