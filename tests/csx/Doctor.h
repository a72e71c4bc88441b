#pragma once

#include <fstream>

#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {

/// Expects the step that fails, the verdict and the hint after it, and nothing else after the steps that pass.
/// @param section  a text of the hint, after the page of the manual.
inline void expectVerdict(Csx& csx, int code, const std::string& step, const std::string& verdict,
                          const std::string& section) {
    const Ended doctor = ended(csx);
    EXPECT_EQ(doctor.code, code) << doctor.err;
    const auto lines = linesOf(doctor.out);
    ASSERT_GE(lines.size(), 3U) << doctor.out;
    for (std::size_t i = 0; i + 3 < lines.size(); ++i) {
        EXPECT_EQ(lines[i].substr(0, 6), "ok    ") << lines[i];
    }
    EXPECT_EQ(lines[lines.size() - 3].rfind("FAIL  " + step + ": ", 0), 0U) << doctor.out;
    EXPECT_EQ(lines[lines.size() - 2], "verdict: " + verdict);
    static const std::regex hint(R"(hint: .* Manual: [a-z-]+\.md, (.*)\.)");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(lines.back(), match, hint)) << lines.back();
    EXPECT_TRUE(contains(match[1].str(), section)) << lines.back();
    EXPECT_EQ(doctor.err, "");
}

}  // namespace com_tesk::csx_test
