// Frames as entries, from bytes that are written by hand.

#include "tools/recording/Decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/HostMessages.h"
#include "tools/recording/EntryText.h"
#include "tools/recording/KnownState.h"

namespace com_tesk::recording {
namespace {

using test::hexField;
using test::hexWord;

test::Bytes frameOf(const std::string& bodyHex, unsigned int kind = 0) {
    const auto size = static_cast<unsigned int>(test::hex(bodyHex).size());
    return test::hex(hexWord(32 + size) + ' ' + hexWord(32) + ' ' + hexWord(kind) +
                     " 00 00 00 00 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF FF " + bodyHex);
}

/// A request with this code: the length in its sub-header must be that of the body.
std::string requestOf(const std::string& code, const std::string& restHex) {
    const auto rest = static_cast<unsigned int>(test::hex(restHex).size());
    return "04 02 7F FF " + hexWord(12 + rest) + " 00 7F 00 " + code + ' ' + restHex;
}

class DecoderOf : public ::testing::Test {
  protected:
    /// Returns the lines of the entries without their times and connection: one text for all.
    std::string feed(Side side, const test::Bytes& bytes) {
        std::string text;
        for (const Content& content : decoder.feed(side, bytes.data(), bytes.size())) {
            std::string line;
            const Entry entry{Time(0), 1, content};
            appendLine(line, entry);
            known.note(entry);
            const std::string head = R"({"t":0.000000,"type":)";
            text += line.substr(head.size(), line.size() - head.size() - 2) + '|';
        }
        return text;
    }
    std::string client(const std::string& bodyHex) { return feed(Side::CLIENT, frameOf(bodyHex)); }
    std::string host(const std::string& bodyHex) { return feed(Side::HOST, frameOf(bodyHex)); }

    std::string state() const {
        std::string line;
        appendLine(line, {Time(0), 0, known.state()});
        return line;
    }

    Decoder decoder;
    KnownState known;
};

const std::string kRegisterOutputs =
    requestOf("02", "00 05 00 00 00 00 00 02 00 00 00 00 00 00 00 00 " + hexField("altitude") +
                        " 00 00 00 00 00 00 00 01 " + hexField("count"));
const std::string kPublish =
    requestOf("03",
              "00 05 00 00 00 00 00 00 00 00 00 03 00 00 00 07 00 00 00 00 41 48 00 00 00 00 00 09 00 00 00 00 "
              "00 00 00 03 00 00 00 4D 00 00 00 01 FF FF FF FF");

TEST_F(DecoderOf, RequestsOfAClient) {
    EXPECT_EQ(client(requestOf("06", "00 05 00 00 00 00 00 00")),
              R"("version-request","connection":1,"simulator-id":5|)");
    EXPECT_EQ(
        client(requestOf("01", "00 05 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 01 " + hexField("lamp"))),
        R"("register-inputs","connection":1,"parameters":[{"name":"lamp","type":"integer"}]|)");
    EXPECT_EQ(client(kRegisterOutputs),
              R"("register-outputs","connection":1,"parameters":[{"name":"altitude","type":"float"},)"
              R"({"name":"count","type":"integer"}]|)");
}

TEST_F(DecoderOf, PublishedValuesHaveTheTypeOfTheirOutput) {
    client(kRegisterOutputs);
    EXPECT_EQ(host(test::outputsConfirmed({{7, "altitude"}, {9, "count"}})),
              R"("outputs-confirmed","connection":1,"parameters":[{"name":"altitude","type":"float","id":7},)"
              R"({"name":"count","type":"integer","id":9}]|)");
    // The flags of the records are not those of the registration. The third id is unknown.
    EXPECT_EQ(client(kPublish), R"("publish","connection":1,"values":[["altitude",12.5],["count",3,"integer"],)"
                                R"([{"id":77},-1,"integer"]]|)");
}

TEST_F(DecoderOf, MessagesOfAHost) {
    EXPECT_EQ(host(test::versionResponse(0x00050000, "host 1")),
              R"("version","connection":1,"text":"host 1","protocol":9,"simulator-id":5,"status":1|)");
    EXPECT_EQ(
        host(test::inputConfirmation(1, {test::confirmedInput(5, 0, "41 48 00 00", "lamp")})),
        R"("inputs-confirmed","connection":1,"parameters":[{"name":"lamp","type":"float","id":5,"value":12.5}]|)");
    EXPECT_EQ(host(test::update(2, {test::updated(5, 1, hexWord(3)), test::updated(6, 0, hexWord(0))})),
              R"("update","connection":1,"values":[["lamp",3,"integer"],[{"id":6},0.0]]|)");
}

TEST_F(DecoderOf, UnregisteredNamesAreThoseOfTheIds) {
    host(test::inputsConfirmed({{5, "lamp"}, {6, "horn"}}));
    host(test::outputsConfirmed({{5, "gear"}}));
    EXPECT_EQ(client(requestOf("04", "00 05 00 00 00 00 00 03 00 00 00 06 00 00 00 05 00 0F FF FF")),
              R"("unregister-inputs","connection":1,"names":["horn","lamp"]|)");
    EXPECT_EQ(client(requestOf("05", "00 05 00 00 00 00 00 01 00 00 00 05")),
              R"("unregister-outputs","connection":1,"names":["gear"]|)");
}

TEST_F(DecoderOf, CountsBeyondTheMessageAreCut) {
    host(test::inputsConfirmed({{5, "lamp"}}));
    EXPECT_EQ(host(test::update(0xFFFFFFFF, {test::updated(5, 0, hexWord(0))})),
              R"("update","connection":1,"values":[["lamp",0.0]]|)");
    EXPECT_EQ(host(test::update(0, {test::updated(5, 0, hexWord(0))})), R"("update","connection":1,"values":[]|)");
}

TEST_F(DecoderOf, EveryCutOfAHostsMessageIsRead) {
    for (const std::string& body :
         {test::versionResponse(0, "v"), test::inputsConfirmed({{5, "lamp"}}), test::outputsConfirmed({{5, "gear"}}),
          test::update(1, {test::updated(5, 0, hexWord(0))})}) {
        for (std::size_t size = 0; size < test::hex(body).size(); ++size) {
            EXPECT_NE(feed(Side::HOST, frameOf(test::firstBytes(body, size))), "") << body << size;
        }
    }
    EXPECT_EQ(host(""), R"("unreadable","connection":1,"side":"host","why":"body of 0 bytes is too short"|)");
}

TEST_F(DecoderOf, OtherFramesAreUnreadable) {
    EXPECT_EQ(client("04 02"),
              R"("unreadable","connection":1,"side":"client","why":"body of 2 bytes is too short for a request"|)");
    EXPECT_EQ(
        host("05 02 00 00 00 00 00 00 00 00 01 06 00 00 00 00"),
        R"("unreadable","connection":1,"side":"host","why":"unknown message: protocol bytes 5 2, flag 1, code 6, 16 bytes"|)");
    EXPECT_EQ(feed(Side::HOST, frameOf("00", 7)),
              R"("unreadable","connection":1,"side":"host","why":"a frame of kind 7"|)");
    EXPECT_EQ(client(requestOf("06", "00 05 00 00 00 00 00 00")),
              R"("version-request","connection":1,"simulator-id":5|)")
        << "the stream is intact";
}

TEST_F(DecoderOf, BytesThatAreNoFramesAreNotedOnce) {
    const test::Bytes text(40, 'x');
    EXPECT_EQ(
        feed(Side::HOST, text),
        R"("unreadable","connection":1,"side":"host","why":"no frames from here on: header length is 2021161080, not 32"|)");
    EXPECT_EQ(feed(Side::HOST, text), "");
    EXPECT_EQ(client(requestOf("06", "00 05 00 00 00 00 00 00")),
              R"("version-request","connection":1,"simulator-id":5|)");
}

TEST_F(DecoderOf, EverySplitGivesTheSameEntries) {
    test::Bytes all;
    for (const std::string& body : {kRegisterOutputs, requestOf("06", "00 05 00 00 00 00 00 00"), kPublish}) {
        const test::Bytes frame = frameOf(body);
        all.insert(all.end(), frame.begin(), frame.end());
    }
    const std::string whole = feed(Side::CLIENT, all);
    for (std::size_t size = 0; size <= all.size(); ++size) {
        const auto middle = all.begin() + static_cast<std::ptrdiff_t>(size);
        std::string parts = feed(Side::CLIENT, {all.begin(), middle});
        parts += feed(Side::CLIENT, {middle, all.end()});
        ASSERT_EQ(parts, whole) << size;
    }
}

TEST_F(DecoderOf, TheStateFollowsTheEntries) {
    known.note({Time(0), 1, Connected{"c"}});
    host(test::versionResponse(0x00050000, "host 1"));
    host(test::inputConfirmation(
        2, {test::confirmedInput(5, 0, "41 48 00 00", "lamp"), test::confirmedInput(6, 1, hexWord(2), "horn")}));
    client(kRegisterOutputs);
    host(test::outputsConfirmed({{7, "altitude"}, {9, "count"}}));
    client(kPublish);
    host(test::update(1, {test::updated(5, 0, "3F 80 00 00")}));
    const std::string rest = R"("values":[["altitude",12.5],["count",3,"integer"],["horn",2,"integer"],["lamp",1.0]],)"
                             R"("version":"host 1","protocol":9})"
                             "\n";
    EXPECT_EQ(state(), R"({"t":0.000000,"type":"state","connections":[{"connection":1,"simulator-id":5,"inputs":[)"
                       R"({"name":"horn","type":"integer","id":6,"value":2},)"
                       R"({"name":"lamp","type":"float","id":5,"value":1.0}],"outputs":[)"
                       R"({"name":"altitude","type":"float","id":7},{"name":"count","type":"integer","id":9}]}],)" +
                           rest);
    std::string flaw;
    std::string line = state();
    line.pop_back();
    KnownState copy;
    copy.note(*entryOf(line, flaw));
    std::string again;
    appendLine(again, {Time(0), 0, copy.state()});
    EXPECT_EQ(again, state());
    client(requestOf("04", "00 05 00 00 00 00 00 01 00 00 00 06"));
    client(requestOf("05", "00 05 00 00 00 00 00 02 00 00 00 07 00 00 00 09"));
    EXPECT_EQ(state(), R"({"t":0.000000,"type":"state","connections":[{"connection":1,"simulator-id":5,"inputs":[)"
                       R"({"name":"lamp","type":"float","id":5,"value":1.0}],"outputs":[]}],)" +
                           rest);
    known.note({Time(0), 1, Lost{Side::HOST, "closed"}});
    EXPECT_EQ(state(), R"({"t":0.000000,"type":"state","connections":[],)" + rest);
}

}  // namespace
}  // namespace com_tesk::recording
