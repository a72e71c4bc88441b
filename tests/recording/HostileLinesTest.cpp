// Lines that are no entries: each is refused with a reason.

#include <gtest/gtest.h>

#include <string>

#include "tools/recording/EntryText.h"
#include "tools/recording/JsonTree.h"

namespace com_tesk::recording {
namespace {

std::string validate(const std::string& line) {
    std::string flaw;
    EXPECT_FALSE(entryOf(line, flaw).has_value()) << line.substr(0, 200);
    return flaw;
}

std::string validateValue(const std::string& pair) {
    return validate(R"({"t":0,"type":"update","connection":1,"values":[)" + pair + "]}");
}

TEST(HostileLines, OtherTextsAreNoJson) {
    for (const char* line :
         {"", " ", "x", "{", "{}x", "nul", "\"\\ud800\"", "\"\xFF\"", "[1,]", "{\"t\":01}", "1e999"}) {
        EXPECT_EQ(validate(line), "not JSON") << line;
    }
    EXPECT_EQ(validate(std::string("{\"t\":0,\"type\":\"end\"}\0", 21)), "not JSON");
}

TEST(HostileLines, OtherValuesAreNoEntries) {
    for (const char* line : {"null", "true", "1", "\"end\"", "[]", "{}", R"([{"t":0,"type":"end"}])"}) {
        EXPECT_EQ(validate(line), "no t") << line;
    }
    EXPECT_EQ(validate(R"({"t":0})"), "no type");
    EXPECT_EQ(validate(R"({"t":0,"type":7})"), "no text: type");
    EXPECT_EQ(validate(R"({"t":0,"type":"ending"})"), "unknown type: ending");
}

TEST(HostileLines, TimesAreInRange) {
    for (const char* time : {"-1", "1e10", "-0.000001", "1000000001"}) {
        EXPECT_EQ(validate(R"({"type":"end","t":)" + std::string(time) + "}"), "t is out of range") << time;
    }
    EXPECT_EQ(validate(R"({"type":"end","t":"0"})"), "no number in range: t");
}

TEST(HostileLines, DeepNestingIsRefused) {
    const std::string deep(1'000'000, '[');
    EXPECT_EQ(validate(deep), "nested too deep");
    EXPECT_EQ(validate(R"({"t":0,"type":"end","more":)" + deep), "nested too deep");
    std::string objects;
    for (int i = 0; i < 100'000; ++i) {
        objects += "{\"a\":";
    }
    EXPECT_EQ(validate(objects), "nested too deep");
}

TEST(HostileLines, NumbersOutOfRangeAreRefused) {
    EXPECT_EQ(validateValue(R"(["a",2147483648,"integer"])"), "no number in range: value");
    EXPECT_EQ(validateValue(R"(["a",-2147483649,"integer"])"), "no number in range: value");
    EXPECT_EQ(validateValue(R"(["a",1.0,"integer"])"), "no number in range: value");
    EXPECT_EQ(validateValue(R"(["a",1e39])"), "no number in range: value");
    EXPECT_EQ(validateValue(R"([{"id":4294967296},1.0])"), "no number in range: id");
    EXPECT_EQ(validateValue(R"([{"id":-1},1.0])"), "no number in range: id");
    EXPECT_EQ(validate(R"({"t":0,"type":"end","connection":4294967296})"), "no number in range: connection");
    EXPECT_EQ(validate(R"({"t":0,"type":"version-request","simulator-id":65536})"), "no number in range: simulator-id");
}

TEST(HostileLines, PairsHaveTwoOrThreeParts) {
    for (const char* pair : {"[]", R"(["a"])", R"("a")", "7", R"({"a":1})"}) {
        EXPECT_EQ(validateValue(pair), "no pair of a name and a value") << pair;
    }
    EXPECT_EQ(validateValue(R"(["a",1,"int"])"), "no type");
    EXPECT_EQ(validateValue(R"(["a",1,7])"), "no type");
    EXPECT_EQ(validateValue("[7,1]"), "no text: name");
    EXPECT_EQ(validateValue("[{},1]"), "no text: name");
}

TEST(HostileLines, TextsOfValuesAreThoseOfSpecialNumbers) {
    for (const char* text :
         {"", "NaN", "infinity", "nan:", "nan:7fc0000", "nan:7fc000000", "nan:7f800000", "nan:0000000x"}) {
        EXPECT_EQ(validateValue(R"(["a",")" + std::string(text) + "\"]"), "no value: " + std::string(text));
    }
    EXPECT_EQ(validateValue(R"(["a",true])"), "no number in range: value");
}

TEST(HostileLines, NamesFitIntoMessages) {
    const std::string flaw = "a name has more than 32 bytes, or a zero byte";
    std::string ignored;
    EXPECT_TRUE(entryOf(R"({"t":0,"type":"update","values":[[")" + std::string(32, 'a') + R"(",1]]})", ignored));
    EXPECT_EQ(validateValue("[\"" + std::string(33, 'a') + "\",1]"), flaw);
    EXPECT_EQ(validateValue(R"(["a\u0000b",1])"), flaw);
    EXPECT_EQ(validateValue(R"([{"hex":"6100"},1])"), flaw);
    for (const char* digits : {"6", "6g", "+6", "616"}) {
        EXPECT_EQ(validateValue(R"([{"hex":")" + std::string(digits) + R"("},1])"), "no hexadecimal digits") << digits;
    }
}

TEST(HostileLines, BytesAreBase64) {
    for (const char* text :
         {"A", "AA", "AAA", "AA=A", "A===", "====", "AB==", "AAB=", "AA==AAAA", "AA A", "A\\u0000AA"}) {
        EXPECT_EQ(validate(R"({"t":0,"type":"raw","side":"host","bytes":")" + std::string(text) + "\"}"),
                  "no base64: bytes")
            << text;
    }
}

TEST(HostileLines, SidesTypesAndArraysAreChecked) {
    EXPECT_EQ(validate(R"({"t":0,"type":"lost","side":"both","why":""})"), "no side");
    EXPECT_EQ(validate(R"({"t":0,"type":"publish","values":{}})"), "no array: values");
    EXPECT_EQ(validate(R"({"t":0,"type":"unregister-inputs","names":[1]})"), "no text: name");
    EXPECT_EQ(validate(R"({"t":0,"type":"register-inputs","parameters":[{"name":"a","type":"double"}]})"), "no type");
    EXPECT_EQ(validate(R"({"t":0,"type":"register-inputs","parameters":["a"]})"), "no name");
    EXPECT_EQ(validate(R"({"t":0,"type":"state","connections":[7],"values":[],"version":"","protocol":0})"),
              "no connection");
}

TEST(HostileLines, LongLinesAreRefused) {
    constexpr std::size_t kTooLong = 64U * 1024U * 1024U + 1U;
    EXPECT_EQ(validate(std::string(kTooLong, ' ')), "longer than 64 MiB");
}

TEST(HostileLines, TooManyValuesAreRefused) {
    std::string flaw;
    EXPECT_TRUE(JsonTree::parse("[0,{\"a\":1}]", flaw, 5).has_value());
    EXPECT_FALSE(JsonTree::parse("[0,{\"a\":1}]", flaw, 4).has_value());
    EXPECT_EQ(flaw, "too many values");
}

}  // namespace
}  // namespace com_tesk::recording
