// The hints of `csx doctor` name pages and sections of the manual.

#include "tools/csx/Diagnosis.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace com_tesk::csx {
namespace {

/// Returns the headings of a page, without their marks.
std::set<std::string> headingsOf(const std::string& page) {
    std::ifstream file(std::string(MANUAL_PATH) + '/' + page);
    EXPECT_TRUE(file) << page;
    std::set<std::string> headings;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("## ", 0) == 0 || line.rfind("### ", 0) == 0) {
            headings.insert(line.substr(line.find(' ') + 1));
        }
    }
    return headings;
}

/// Returns true when the page has a section of this title, or with this number.
bool hasSection(const std::set<std::string>& headings, const std::string& title, const std::string& number) {
    const auto found = title.empty() ? headings.lower_bound(number + ". ") : headings.find(title);
    return found != headings.end() && (!title.empty() || found->rfind(number + ". ", 0) == 0);
}

TEST(Diagnosis, EveryHintNamesASectionOfTheManual) {
    static const std::regex place(R"re(.*\. Manual: ([a-z-]+\.md), (?:"(.*)"|section ([0-9]+))\.)re");
    std::set<std::string> verdicts;
    for (const Failure failure : kFailures) {
        const Diagnosis& diagnosis = diagnosisOf(failure);
        verdicts.insert(diagnosis.verdict);
        std::smatch match;
        const std::string hint = diagnosis.hint;
        ASSERT_TRUE(std::regex_match(hint, match, place)) << hint;
        EXPECT_TRUE(hasSection(headingsOf(match[1]), match[2], match[3])) << hint;
    }
    EXPECT_EQ(verdicts.size(), std::size(kFailures)) << "two failures have the same verdict";
}

TEST(Diagnosis, AConnectionShowsThatTheHostHasAccepted) {
    EXPECT_TRUE(hasAccepted({Link::CONNECTED, Cause::NONE, 0, ""}));
    EXPECT_TRUE(hasAccepted({Link::READY, Cause::NONE, 0, ""}));
    EXPECT_FALSE(hasAccepted({Link::CONNECTING, Cause::NONE, 0, ""}));
    EXPECT_FALSE(hasAccepted({Link::CONNECTING, Cause::REFUSED, ECONNREFUSED, ""}));
    EXPECT_FALSE(hasAccepted({Link::CONNECTING, Cause::UNREACHABLE, ETIMEDOUT, ""}));
}

TEST(Diagnosis, AResetShowsThatTheHostHasAccepted) {
    EXPECT_TRUE(hasAccepted({Link::CONNECTING, Cause::UNREACHABLE, ECONNRESET, ""}));
}

}  // namespace
}  // namespace com_tesk::csx
