// The page of limits names for each the file and the words in which the code holds it.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/FrameLayout.h"
#include "simulator/MessageLayout.h"
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

TEST(Limits, PageSaysHowManyInputsOneConfirmationHolds) {
    const std::size_t largestFrame = CSCommsInterfaceTCPBuffered::Bounds().largestFrame;
    const std::size_t records = largestFrame - frame::kHeaderLength - layout::kRecordsOffset;
    EXPECT_EQ(records / layout::input_confirmation::kRecordLength, 322'637U);
    EXPECT_NE(sourceFile("docs/manual/limits.md").find("| 322,637 with the default largest frame |"),
              std::string::npos);
}

}  // namespace
}  // namespace com_tesk::test
