#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "tests/docs/ManualPage.h"
#include "tools/csmqtt/ConfigReader.h"
#include "tools/csmqtt/MetricsText.h"

namespace com_tesk::monitoring_test {
namespace {

using Texts = std::set<std::string>;

std::string sourceFile(const std::string& path) {
    std::ifstream file(CSCLIENT_SOURCE_TREE "/" + path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

const std::string& page() {
    static const std::string text = sourceFile("docs/manual/mqtt.md");
    return text;
}

/// Returns the texts in backquotes in the first column of the table whose first column has this heading.
Texts firstColumn(const std::string& heading) {
    const std::size_t begin = page().find("\n| " + heading + " |");
    EXPECT_NE(begin, std::string::npos) << heading;
    const std::string table = page().substr(begin + 1, page().find("\n\n", begin) - begin);
    Texts result;
    static const std::regex row(R"(\n\| ([^|]+) \|)");
    for (std::sregex_iterator match(table.begin(), table.end(), row), end; match != end; ++match) {
        for (const std::string& span : test::codeSpans((*match)[1])) {
            result.insert(span);
        }
    }
    return result;
}

/// Returns what the group of the expression matches in the text.
Texts matchesIn(const std::string& text, const std::string& expression) {
    const std::regex pattern(expression);
    Texts result;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
        result.insert((*match)[1]);
    }
    return result;
}

/// Returns the keys of the map that `isMapOf` checks in the source, at the call with this key.
Texts keysOf(const std::string& path, const std::string& key) {
    Texts result;
    for (const std::string& list : matchesIn(sourceFile(path), R"(isMapOf\([^{]*\{([^}]*)\})")) {
        const Texts keys = matchesIn(list, R"re("([^"]+)")re");
        if (keys.count(key) != 0) {
            result.insert(keys.begin(), keys.end());
        }
    }
    return result;
}

/// Expects that the text is a configuration without flaws.
mqtt::Config expectValid(const std::string& text) {
    std::vector<scenario::Flaw> flaws;
    mqtt::Config config = mqtt::readConfig(text, ".", flaws);
    for (const scenario::Flaw& flaw : flaws) {
        ADD_FAILURE() << mqtt::flawText("file", flaw);
    }
    return config;
}

TEST(MqttPage, ItsConfigurationsAreValid) {
    const Texts blocks = matchesIn(page(), "```yaml\n([^`]*)```");
    EXPECT_EQ(blocks.size(), 2U);
    for (const std::string& block : blocks) {
        EXPECT_EQ(expectValid(block).base, "hall/3");
    }
}

TEST(MqttPage, TheInstalledConfigurationIsValidWithAllItsLines) {
    const std::string file = sourceFile("packaging/csmqtt.yaml");
    EXPECT_EQ(expectValid(file).base, "simulation");
    std::string all = std::regex_replace(file, std::regex("# (tls|user|discovery): "), "$1: ");
    EXPECT_EQ(expectValid(all).discovery, mqtt::Discovery::HOME_ASSISTANT);
    EXPECT_LE(matchesIn(file, "\n([^\n]*# +edit)").size(), 10U) << "it promises ten lines to edit";
}

TEST(MqttPage, DescribesEveryKeyOfTheConfiguration) {
    EXPECT_EQ(firstColumn("Key"), keysOf("tools/csmqtt/ConfigReader.cpp", "base"));
    Texts broker = keysOf("tools/csmqtt/BrokerReader.cpp", "address");
    broker.erase("password");  // It is known only to be refused.
    EXPECT_EQ(firstColumn("Key of `broker`"), broker);
    EXPECT_EQ(firstColumn("Key of an entry"), keysOf("tools/csmqtt/EntryReader.cpp", "name"));
}

TEST(MqttPage, DescribesEveryMetric) {
    EXPECT_EQ(firstColumn("Metric"), matchesIn(mqtt::metricsText(mqtt::Snapshot()), "# TYPE ([a-z_]+) "));
}

TEST(MqttPage, HasTheReasonsOfTheStatistics) {
    EXPECT_EQ(firstColumn("Count"), matchesIn(sourceFile("tools/csmqtt/Statistics.cpp"), R"re("(ignored_[a-z]+)")re"));
}

TEST(MqttPage, HasTheExitCodesOfTheProgramAndItsManualPage) {
    const Texts codes = matchesIn(page(), R"(\n\| ([0-9]) \|)");
    EXPECT_EQ(codes, matchesIn(sourceFile("man/csmqtt.1"), "\n\\.It ([0-9])\n"));
    const std::string main = sourceFile("tools/csmqtt/main.cpp");
    EXPECT_EQ(codes, matchesIn(main.substr(main.find("Exit codes:")), R"((?::|;) ([0-9]) )"));
    EXPECT_THAT(sourceFile("packaging/systemd/csmqtt.service"), testing::HasSubstr("RestartPreventExitStatus=1 2 3\n"));
}

}  // namespace
}  // namespace com_tesk::monitoring_test
