#include "tools/scenario/Junit.h"

#include <algorithm>
#include <cstdio>

namespace com_tesk::scenario {

namespace {

/// XML has no place for other control characters.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\n':
                result += "&#10;";
                break;
            default:
                result += static_cast<unsigned char>(character) < 0x20 ? '?' : character;
        }
    }
    return result;
}

std::string attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + escaped(value) + '"';
}

std::string secondsOf(Duration duration) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", std::chrono::duration<double>(duration).count());
    return text;
}

std::string caseOf(const Played& played, const ScenarioVerdict::Result& result) {
    std::string text = "    <testcase" + attribute("name", result.expectation) + attribute("classname", played.name) +
                       attribute("file", played.file) + attribute("time", secondsOf(result.decidedAt));
    if (result.line != 0) {
        text += attribute("line", std::to_string(result.line));
    }
    if (result.isMet) {
        return text + "/>\n";
    }
    std::string events;
    for (const std::string& event : result.lastEvents) {
        events += event + '\n';
    }
    return text + ">\n      <failure" + attribute("message", result.reason) + '>' + escaped(events) +
           "</failure>\n    </testcase>\n";
}

std::string suiteOf(const Played& played) {
    const auto& results = played.verdict.results;
    const auto failures =
        std::count_if(results.begin(), results.end(), [](const auto& result) { return !result.isMet; });
    std::string text = "  <testsuite" + attribute("name", played.name) +
                       attribute("tests", std::to_string(results.size() + (played.error.empty() ? 0 : 1))) +
                       attribute("failures", std::to_string(failures)) +
                       attribute("errors", played.error.empty() ? "0" : "1") +
                       attribute("time", secondsOf(played.verdict.duration)) + ">\n";
    for (const ScenarioVerdict::Result& result : results) {
        text += caseOf(played, result);
    }
    if (!played.error.empty()) {
        text += "    <testcase" + attribute("name", "is played to its end") + attribute("classname", played.name) +
                attribute("file", played.file) + ">\n      <error" + attribute("message", played.error) +
                "/>\n    </testcase>\n";
    }
    return text + "  </testsuite>\n";
}

}  // namespace

std::string junitOf(const std::vector<Played>& played) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
    for (const Played& one : played) {
        text += suiteOf(one);
    }
    return text + "</testsuites>\n";
}

}  // namespace com_tesk::scenario
