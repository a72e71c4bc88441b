#pragma once

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace com_tesk::monitoring_test {

/// A strict reader of the text format for scrapers, version 0.0.4. What does not fit fails the test.
class Exposition {
  public:
    explicit Exposition(const std::string& text) {
        EXPECT_TRUE(text.empty() || text.back() == '\n') << "the last line has no end";
        std::istringstream lines(text);
        std::string line;
        while (std::getline(lines, line)) {
            if (line.rfind("# HELP ", 0) == 0) {
                readHelp(line);
            } else if (line.rfind("# TYPE ", 0) == 0) {
                readType(line);
            } else {
                readSample(line);
            }
        }
    }

    /// Returns the text of the sample's number, such as "1.5"; nothing when there is no such sample.
    /// @param sample  the name, with its label if it has one: `csmqtt_value{name="a"}`.
    std::optional<std::string> operator[](const std::string& sample) const {
        const auto found = samples.find(sample);
        return found == samples.end() ? std::nullopt : std::optional(found->second);
    }

    std::size_t size() const { return samples.size(); }

  private:
    void readHelp(const std::string& line) {
        static const std::regex form("# HELP ([a-zA-Z_:][a-zA-Z0-9_:]*) [^\\\\]+");
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
        ASSERT_TRUE(families.insert(parts[1]).second) << "a family begins twice: " << line;
        family = parts[1];
        type.clear();
    }

    void readType(const std::string& line) {
        static const std::regex form("# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge)");
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
        ASSERT_EQ(parts[1], family) << "the type of another family";
        ASSERT_EQ(type, "") << "a second type: " << line;
        type = parts[2];
        EXPECT_EQ(type == "counter", std::regex_search(family, std::regex("_total$"))) << line;
    }

    void readSample(const std::string& line) {
        static const std::regex form(
            R"re(([a-zA-Z_:][a-zA-Z0-9_:]*)(\{[a-zA-Z_][a-zA-Z0-9_]*="([^"\\]|\\[\\"n])*"\})? )re"
            R"re((NaN|[+-]Inf|-?[0-9]+(\.[0-9]+)?(e[+-][0-9]+)?))re");
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
        ASSERT_EQ(parts[1], family) << "a sample of another family";
        ASSERT_NE(type, "") << "a sample before the type";
        ASSERT_TRUE(samples.emplace(parts[1].str() + parts[2].str(), parts[4]).second) << "a sample twice: " << line;
    }

    std::set<std::string> families;
    std::map<std::string, std::string> samples;
    std::string family;
    std::string type;
};

}  // namespace com_tesk::monitoring_test
