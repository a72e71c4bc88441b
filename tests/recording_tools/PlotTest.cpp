// The script for gnuplot.

#include "tools/recording_tools/Plot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/recording/TemporaryDirectory.h"
#include "tests/recording_tools/Logs.h"

namespace com_tesk::recording {
namespace {

using namespace recording_test;
using testing::HasSubstr;
using testing::Not;

class PlotOf : public ::testing::Test {
  protected:
    Plot plot(const std::string& log, const std::vector<std::string>& names) const {
        Recording source(directory.write("log.jsonl", log));
        Reading reading(source, [] {});
        return plotOf(reading, names, Picture::SVG);
    }

    TemporaryDirectory directory;
};

std::string rectangle(const std::string& begin, const std::string& end, const std::string& colour) {
    return "set object rectangle from " + begin + ", graph 0 to " + end + ", graph 1 back fillcolor rgb '" + colour +
           "'";
}

TEST_F(PlotOf, LossesAreRedAndStaleNamesGreyUntilTheNextValue) {
    std::string log = headerLine() + connectionLines(1, 1);
    for (int i = 0; i < 8; ++i) {
        log += updateLine("1." + std::to_string(i + 1) + "00000", R"(["altitude",2.0])");
    }
    log += lostLine("2.000000", 1, "host", "closed") + entryLine("3.000000",
                                                                 R"("version","connection":2,"text":"h","protocol":9,)"
                                                                 R"("simulator-id":7,"status":1)");
    log += updateLine("4.000000", R"(["altitude",3.0])", 2) + entryLine("9.000000", R"("end")");
    const std::string script = plot(log, {"altitude"}).script;
    EXPECT_THAT(script, HasSubstr(rectangle("2.000000", "3.000000", "#f4b6b0")));
    EXPECT_THAT(script, HasSubstr(rectangle("2.000000", "4.000000", "#dddddd")));
    // The median interval is 0.1 s, so ten of them are little more than a second.
    EXPECT_THAT(script, HasSubstr("set object rectangle from 5.0"));
    EXPECT_THAT(script, HasSubstr(" to 9.000000, graph 1 back fillcolor rgb '#dddddd'"));
}

TEST_F(PlotOf, ASingleValueDoesNotBecomeStale) {
    const std::string log = headerLine() + connectionLines(1, 1) + entryLine("60.000000", R"("end")");
    EXPECT_THAT(plot(log, {"gear"}).script, Not(HasSubstr("set object rectangle")));
}

TEST_F(PlotOf, ValuesBothWaysAreTwoLines) {
    const std::string log = headerLine() + updateLine("1.000000", R"(["a",1.0])") +
                            publishLine("2.000000", R"(["a",4.0])") + updateLine("3.000000", R"(["a","nan"])");
    const Plot result = plot(log, {"a"});
    EXPECT_EQ(result.values, "1.000000 1\n3.000000 1\n\n\n2.000000 4\n3.000000 4\n\n\n");
    EXPECT_THAT(result.script,
                HasSubstr("index 0 using 1:2 with steps linewidth 1.5 linecolor rgb '#1f5fa8' title 'received'"));
    EXPECT_THAT(result.script,
                HasSubstr("index 1 using 1:2 with steps linewidth 1.5 linecolor rgb '#c0501f' title 'published'"));
}

TEST_F(PlotOf, NamesCannotLeaveTheirQuotes) {
    const std::string log =
        headerLine() + updateLine("1.000000", R"(["a'b\n!c`\\",1.0])") + entryLine("2.000000", R"("end")");
    const std::string script = plot(log, {"a'b\n!c`\\"}).script;
    EXPECT_THAT(script, HasSubstr(R"(set ylabel 'a''b\x0a!c`)"));
    EXPECT_THAT(script, Not(HasSubstr("\n!c")));
}

TEST_F(PlotOf, NamesWithoutFiniteValuesAndTooManyNamesAreRefused) {
    const std::string log = headerLine() + updateLine("1.000000", R"(["a","inf"])");
    EXPECT_THROW(plot(log, {"a"}), std::runtime_error);
    EXPECT_THROW(plot(log, {"b"}), std::runtime_error);
    EXPECT_THROW(plot(log, std::vector<std::string>(33, "a")), std::runtime_error);
}

TEST_F(PlotOf, ConstantsAndRecordingsWithoutDurationHaveRanges) {
    const std::string script = plot(headerLine() + updateLine("0.000000", R"(["a",3.0])"), {"a"}).script;
    EXPECT_THAT(script, HasSubstr("set xrange [0:0.000001]"));
    EXPECT_THAT(script, HasSubstr("set yrange [2:4]"));
}

}  // namespace
}  // namespace com_tesk::recording
