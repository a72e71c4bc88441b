// The page of limits names for each the file and the words in which the code holds it.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/docs/ManualPage.h"

namespace com_tesk::test {
namespace {

TEST(Limits, EachStandsInTheCodeAsThePageSays) {
    int limits = 0;
    for (const ManualSection& section : manualPage("limits.md")) {
        for (const ManualTable& table : section.tables()) {
            ASSERT_EQ(table.columns.back(), "In code") << section.heading;
            for (const std::vector<std::string>& row : table.rows) {
                const std::vector<std::string> spans = codeSpans(row.back());
                ASSERT_FALSE(spans.empty()) << row.front();
                ASSERT_EQ(spans.size() % 2, 0U) << row.front() << ": a file and the words in it, or several of both";
                for (std::size_t i = 0; i < spans.size(); i += 2) {
                    EXPECT_NE(sourceFile(spans[i]).find(spans[i + 1]), std::string::npos)
                        << row.front() << ": " << spans[i] << " does not hold: " << spans[i + 1];
                }
                ++limits;
            }
        }
    }
    EXPECT_GT(limits, 30);
}

}  // namespace
}  // namespace com_tesk::test
