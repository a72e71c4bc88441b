// The formats of values.

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

using Rows = std::vector<std::vector<std::string>>;

/// Reads CSV as RFC 4180 has it: each row ends with CR LF, and only quoted fields contain quotes, commas and line ends.
/// Throws for anything else.
Rows rowsOf(const std::string& text) {
    Rows rows;
    std::size_t at = 0;
    const auto fail = [&at](const char* what) { throw std::runtime_error(what + (" at " + std::to_string(at))); };
    while (at < text.size()) {
        rows.emplace_back();
        for (bool isLast = false; !isLast;) {
            std::string field;
            if (text.at(at) == '"') {
                for (++at; text.at(at) != '"' || text.at(at + 1) == '"'; ++at) {
                    at += text.at(at) == '"' ? 1U : 0U;
                    field += text.at(at);
                }
                ++at;
            } else {
                const std::size_t end = std::min(text.find_first_of(",\"\r\n", at), text.size());
                field = text.substr(at, end - at);
                at = end;
            }
            rows.back().push_back(field);
            isLast = text.compare(at, 2, "\r\n") == 0;
            if (!isLast && text.compare(at, 1, ",") != 0) {
                fail("neither a comma nor the end of a row");
            }
            at += isLast ? 2 : 1;
        }
    }
    return rows;
}

const std::string kOddName = "a,b \"c\"\nd\r\xC3\xA4";

HostOptions values() {
    HostOptions options;
    options.initialValues = {
        {"INT", HostValue::integer(16'777'217)},
        {"LEAST", HostValue::integer(std::numeric_limits<std::int32_t>::min())},
        {"TENTH", HostValue::real(0.1F)},
        {"ZERO", HostValue::real(-0.0F)},
        {"NAN", HostValue::real(std::numeric_limits<float>::quiet_NaN())},
        {"INF", HostValue::real(std::numeric_limits<float>::infinity())},
        {"LOW", HostValue::real(-std::numeric_limits<float>::infinity())},
        {kOddName, HostValue::real(1)},
        {"not \xFF utf-8", HostValue::real(2)},
        {"back\\slash\x01\x7F", HostValue::real(3)},
    };
    return options;
}

TEST(Json, IntegersAreExact) {
    LoopbackHost host(values());
    const auto objects = objectsOf(run(host.port(), {"-o", "json", "get", "INT", "LEAST"}).out);
    ASSERT_EQ(objects.size(), 2U);
    EXPECT_TRUE(objects[0]["value"].is_number_integer());
    EXPECT_EQ(objects[0]["value"], 16'777'217);
    EXPECT_EQ(objects[0]["type"], "int");
    EXPECT_EQ(objects[0]["name"], "INT");
    EXPECT_EQ(objects[1]["value"], std::numeric_limits<std::int32_t>::min());
}

TEST(Json, HasTheMembersInTheirOrder) {
    LoopbackHost host(values());
    const Ended get = run(host.port(), {"-o", "json", "get", "TENTH"});
    static const std::regex line(
        R"(\{"t":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z","name":"TENTH","type":"float","value":0\.1\}\n)");
    EXPECT_TRUE(std::regex_match(get.out, line)) << get.out;
}

TEST(Json, WhatIsNoNumberIsAString) {
    LoopbackHost host(values());
    const auto objects = objectsOf(run(host.port(), {"-o", "json", "get", "NAN", "INF", "LOW", "ZERO"}).out);
    ASSERT_EQ(objects.size(), 4U);
    EXPECT_EQ(objects[0]["value"], "nan");
    EXPECT_EQ(objects[1]["value"], "inf");
    EXPECT_EQ(objects[2]["value"], "-inf");
    EXPECT_EQ(objects[0]["type"], "float");
    EXPECT_TRUE(std::signbit(objects[3]["value"].get<double>()));
}

TEST(Json, NamesAreEscapedOrHexadecimal) {
    LoopbackHost host(values());
    const Arguments names{"-o", "json", "get", kOddName, "not \xFF utf-8", "back\\slash\x01\x7F"};
    const auto objects = objectsOf(run(host.port(), names).out);
    ASSERT_EQ(objects.size(), 3U);
    EXPECT_EQ(objects[0]["name"], kOddName);
    EXPECT_FALSE(objects[0].contains("name_hex"));
    EXPECT_EQ(objects[1]["name_hex"], "6e6f7420ff207574662d38");
    EXPECT_FALSE(objects[1].contains("name"));
    EXPECT_EQ(objects[2]["name"], "back\\slash\x01\x7F");
}

TEST(Json, FloatsReadBackTheSame) {
    LoopbackHost host(values());
    constexpr int kCount = 2'000;
    Csx csx(host.port(), {"-o", "json", "watch", "-n", std::to_string(kCount + 1), "TENTH"});
    ASSERT_TRUE(csx.waitForOut("0.1}\n"));
    std::vector<std::uint32_t> sent;
    std::uint32_t bits = 7;
    while (sent.size() < kCount) {
        bits = bits * 1'664'525U + 1'013'904'223U;
        const HostValue value = HostValue::fromBits(bits, false);
        if (std::isfinite(value.asReal())) {
            sent.push_back(bits);
            host.setValue("TENTH", value);
        }
    }
    ASSERT_EQ(csx.exitCode(), 0) << csx.errText();
    const auto objects = objectsOf(csx.outText());
    ASSERT_EQ(objects.size(), sent.size() + 1);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        ASSERT_EQ(HostValue::real(objects[i + 1]["value"].get<float>()).bits(), sent[i]) << objects[i + 1];
    }
}

TEST(Json, TimesOfWatchAreTextsOrNumbers) {
    LoopbackHost host(values());
    const Ended relative = run(host.port(), {"-o", "json", "watch", "--time", "rel", "-n", "1", "INT"});
    EXPECT_EQ(objectsOf(relative.out).at(0)["t"], 0.0);
    const Ended none = run(host.port(), {"-o", "json", "watch", "--time", "none", "-n", "1", "INT"});
    EXPECT_FALSE(objectsOf(none.out).at(0).contains("t"));
}

TEST(Csv, HasOneHeaderAndQuotedNames) {
    LoopbackHost host(values());
    const Ended get = run(host.port(), {"-o", "csv", "get", "INT", kOddName, "NAN", "TENTH"});
    const Rows rows = rowsOf(get.out);
    ASSERT_EQ(rows.size(), 5U);
    EXPECT_EQ(rows[0], (std::vector<std::string>{"t", "name", "type", "value"}));
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 4U);
    }
    const auto withoutTime = [&rows](std::size_t row) {
        return std::vector<std::string>(rows[row].begin() + 1, rows[row].end());
    };
    EXPECT_EQ(withoutTime(1), (std::vector<std::string>{"INT", "int", "16777217"}));
    EXPECT_EQ(withoutTime(2), (std::vector<std::string>{kOddName, "float", "1"}));
    EXPECT_EQ(withoutTime(3), (std::vector<std::string>{"NAN", "float", "nan"}));
    EXPECT_EQ(withoutTime(4), (std::vector<std::string>{"TENTH", "float", "0.1"}));
}

TEST(Csv, OfWatchHasOneHeader) {
    LoopbackHost host(values());
    Csx csx(host.port(), {"-o", "csv", "watch", "--time", "none", "-n", "3", "INT"});
    ASSERT_TRUE(csx.waitForOut("16777217\r\n"));
    host.setValue("INT", HostValue::integer(1));
    host.setValue("INT", HostValue::real(1.5F));
    EXPECT_EQ(csx.exitCode(), 0);
    EXPECT_EQ(csx.outText(), "name,type,value\r\nINT,int,16777217\r\nINT,int,1\r\nINT,float,1.5\r\n");
}

TEST(Text, NamesThatAreNotPlainAreQuoted) {
    LoopbackHost host(values());
    const Ended get = run(host.port(), {"get", kOddName, "not \xFF utf-8", "back\\slash\x01\x7F", "INT"});
    EXPECT_EQ(valuesOf(get.out),
              "\"a,b \\x22c\\x22\\x0ad\\x0d\\xc3\\xa4\" 1|\"not \\xff utf-8\" 2|"
              "\"back\\x5cslash\\x01\\x7f\" 3|INT 16777217");
}

}  // namespace
}  // namespace com_tesk::csx_test
