// The lines of entries, written out by hand.

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tools/recording/EntryText.h"

namespace com_tesk::recording {
namespace {

HostValue bits(std::uint32_t word) {
    return HostValue::fromBits(word, false);
}

std::string lineOf(const Entry& entry) {
    std::string text;
    appendLine(text, entry);
    return text;
}

/// Expects the line for the entry, and the same line again after reading it. No part of a line is a line.
void expectLine(const Entry& entry, const std::string& line) {
    EXPECT_EQ(lineOf(entry), line + '\n');
    std::string flaw;
    const auto read = entryOf(line, flaw);
    ASSERT_TRUE(read.has_value()) << line << ": " << flaw;
    EXPECT_EQ(lineOf(*read), line + '\n');
    EXPECT_EQ(read->content.index(), entry.content.index());
    for (std::size_t size = 0; size < line.size(); ++size) {
        flaw.clear();
        EXPECT_FALSE(entryOf(std::string_view(line).substr(0, size), flaw).has_value()) << line.substr(0, size);
        EXPECT_FALSE(flaw.empty()) << line.substr(0, size);
    }
}

std::string updateOf(const HostValue& value) {
    return lineOf({Time(0), 1, Update{{{"a", 0, value}}}});
}

TEST(EntryText, HeaderHasWhatIdentifiesTheRecording) {
    expectLine(
        {Time(0), 0, Header{1, "csx 4.4.132", "k3", 2, "2026-11-21T22:04:05.123456Z", "proxy", "10.0.0.1:55580"}},
        R"({"t":0.000000,"type":"recording","format":1,"recorder":"csx 4.4.132","run":"k3","part":2,)"
        R"("started":"2026-11-21T22:04:05.123456Z","mode":"proxy","host":"10.0.0.1:55580"})");
}

TEST(EntryText, StateHasConnectionsAndValues) {
    State state;
    state.connections.push_back({3,
                                 7,
                                 {{"lamp", false, 5, HostValue::real(0)}, {"count", true, 6, HostValue::integer(-3)}},
                                 {{"gear", true, 9}}});
    state.values = {{"altitude", 0, HostValue::real(12.5F)}, {"count", 0, HostValue::integer(3)}};
    state.versionText = "host 1.2";
    state.protocolVersion = 9;
    expectLine(
        {Time(60'000'001), 0, state},
        R"({"t":60.000001,"type":"state","connections":[{"connection":3,"simulator-id":7,"inputs":[)"
        R"({"name":"lamp","type":"float","id":5,"value":0.0},{"name":"count","type":"integer","id":6,"value":-3}],)"
        R"("outputs":[{"name":"gear","type":"integer","id":9}]}],)"
        R"("values":[["altitude",12.5],["count",3,"integer"]],"version":"host 1.2","protocol":9})");
}

TEST(EntryText, ConnectionsBeginAndEnd) {
    expectLine({Time(1), 1, Connected{"127.0.0.1:4711"}},
               R"({"t":0.000001,"type":"connected","connection":1,"client":"127.0.0.1:4711"})");
    expectLine({Time(1'500'000), 4'294'967'295U, Lost{Side::CLIENT, "closed"}},
               R"({"t":1.500000,"type":"lost","connection":4294967295,"side":"client","why":"closed"})");
    expectLine({Time(2), 1, Lost{Side::HOST, "a \"quoted\"\\\ttext"}},
               R"({"t":0.000002,"type":"lost","connection":1,"side":"host","why":"a \"quoted\"\\\u0009text"})");
}

TEST(EntryText, VersionsAreRequestedAndReported) {
    expectLine({Time(2), 1, VersionRequest{65'535}},
               R"({"t":0.000002,"type":"version-request","connection":1,"simulator-id":65535})");
    expectLine({Time(2), 1, Version{"h\xFF", 9, 5, 1}},
               R"({"t":0.000002,"type":"version","connection":1,"text":{"hex":"68ff"},"protocol":9,"simulator-id":5,)"
               R"("status":1})");
}

TEST(EntryText, RegistrationsHaveNamesAndTypes) {
    const std::vector<Parameter> parameters{{"lamp", false, 0}, {"\xFF", true, 0}};
    const std::string records =
        R"("parameters":[{"name":"lamp","type":"float"},{"name":{"hex":"ff"},"type":"integer"}]})";
    expectLine({Time(2), 1, Registration{Direction::INPUTS, parameters}},
               R"({"t":0.000002,"type":"register-inputs","connection":1,)" + records);
    expectLine({Time(2), 1, Registration{Direction::OUTPUTS, parameters}},
               R"({"t":0.000002,"type":"register-outputs","connection":1,)" + records);
}

TEST(EntryText, ConfirmationsAlsoHaveIdsAndValues) {
    const std::vector<Parameter> parameters{{"lamp", false, 5, HostValue::real(0.5F)}};
    expectLine({Time(2), 1, Confirmation{Direction::INPUTS, parameters}},
               R"({"t":0.000002,"type":"inputs-confirmed","connection":1,)"
               R"("parameters":[{"name":"lamp","type":"float","id":5,"value":0.5}]})");
    expectLine({Time(2), 1, Confirmation{Direction::OUTPUTS, parameters}},
               R"({"t":0.000002,"type":"outputs-confirmed","connection":1,)"
               R"("parameters":[{"name":"lamp","type":"float","id":5}]})");
}

TEST(EntryText, UnregistrationsHaveNames) {
    expectLine({Time(2), 1, Unregistration{Direction::INPUTS, {"lamp", "gear"}}},
               R"({"t":0.000002,"type":"unregister-inputs","connection":1,"names":["lamp","gear"]})");
    expectLine({Time(2), 1, Unregistration{Direction::OUTPUTS, {}}},
               R"({"t":0.000002,"type":"unregister-outputs","connection":1,"names":[]})");
}

TEST(EntryText, ValuesArePairs) {
    const std::vector<NamedValue> values{
        {"a", 0, HostValue::real(1)}, {"n", 0, HostValue::integer(-1)}, {"", 77, HostValue::real(0.1F)}};
    const std::string pairs = R"("values":[["a",1.0],["n",-1,"integer"],[{"id":77},0.1]]})";
    expectLine({Time(2), 1, Publication{values}}, R"({"t":0.000002,"type":"publish","connection":1,)" + pairs);
    expectLine({Time(2), 1, Update{values}}, R"({"t":0.000002,"type":"update","connection":1,)" + pairs);
}

TEST(EntryText, NotesOfTheRecorder) {
    expectLine({Time(2), 1, Unreadable{Side::CLIENT, "no frame"}},
               R"({"t":0.000002,"type":"unreadable","connection":1,"side":"client","why":"no frame"})");
    expectLine({Time(2), 1, Raw{Side::HOST, std::string("\0\xFF\x10", 3)}},
               R"({"t":0.000002,"type":"raw","connection":1,"side":"host","bytes":"AP8Q"})");
    expectLine({Time(2), 1, Raw{Side::HOST, "ab"}},
               R"({"t":0.000002,"type":"raw","connection":1,"side":"host","bytes":"YWI="})");
    expectLine({Time(2), 1, Raw{Side::HOST, "a"}},
               R"({"t":0.000002,"type":"raw","connection":1,"side":"host","bytes":"YQ=="})");
    expectLine({Time(999'999'999'999'999), 0, End{}}, R"({"t":999999999.999999,"type":"end"})");
}

struct Number {
    std::uint32_t bits;
    const char* text;
};

TEST(EntryText, FloatsKeepTheirBits) {
    const Number numbers[] = {{0x00000000, "0.0"},
                              {0x80000000, "-0.0"},
                              {0x3F800000, "1.0"},
                              {0x3DCCCCCD, "0.1"},
                              {0x00000001, "1e-45"},
                              {0x7F7FFFFF, "3.4028235e+38"},
                              {0x15AE43FD, "7.038531e-26"},
                              {0x4B800000, "16777216.0"},
                              {0x7FC00000, "\"nan\""},
                              {0x7F800000, "\"inf\""},
                              {0xFF800000, "\"-inf\""},
                              {0xFFC00000, "\"nan:ffc00000\""},
                              {0x7F800001, "\"nan:7f800001\""},
                              {0x7FFFFFFF, "\"nan:7fffffff\""}};
    for (const auto& [word, text] : numbers) {
        const std::string line =
            R"({"t":0.000000,"type":"update","connection":1,"values":[["a",)" + std::string(text) + "]]}";
        EXPECT_EQ(updateOf(bits(word)), line + '\n');
        std::string flaw;
        const auto entry = entryOf(line, flaw);
        ASSERT_TRUE(entry.has_value()) << line << flaw;
        EXPECT_EQ(std::get<Update>(entry->content).values.at(0).value, bits(word)) << line;
    }
}

TEST(EntryText, FloatsOfAllSizesKeepTheirBits) {
    for (std::uint64_t word = 0; word <= std::numeric_limits<std::uint32_t>::max(); word += 1'299'709) {
        std::string line = updateOf(bits(static_cast<std::uint32_t>(word)));
        line.pop_back();
        std::string flaw;
        const auto entry = entryOf(line, flaw);
        ASSERT_TRUE(entry.has_value()) << line << flaw;
        ASSERT_EQ(std::get<Update>(entry->content).values.at(0).value.bits(), word) << line;
    }
}

TEST(EntryText, IntegersKeepTheirBits) {
    for (const std::int32_t number :
         {0, 1, -1, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
        std::string line = updateOf(HostValue::integer(number));
        line.pop_back();
        std::string flaw;
        const auto entry = entryOf(line, flaw);
        ASSERT_TRUE(entry.has_value()) << line << flaw;
        EXPECT_EQ(std::get<Update>(entry->content).values.at(0).value, HostValue::integer(number));
    }
}

TEST(EntryText, OtherProgramsMayWriteItDifferently) {
    std::string flaw;
    const auto entry =
        entryOf(R"( { "values" : [["a", 3], ["b", 1E2, "float"]], "new": [{}], "type": "update", "t": 5 } )", flaw);
    ASSERT_TRUE(entry.has_value()) << flaw;
    EXPECT_EQ(entry->time, Time(5'000'000));
    EXPECT_EQ(entry->connection, 0U);
    const auto& values = std::get<Update>(entry->content).values;
    EXPECT_EQ(values.at(0).value, HostValue::real(3));
    EXPECT_EQ(values.at(1).value, HostValue::real(100));
}

}  // namespace
}  // namespace com_tesk::recording
