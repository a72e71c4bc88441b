#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/model/Comparison.h"

namespace com_tesk::test {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& file) {
    std::ifstream stream(file);
    if (!stream) {
        throw std::runtime_error("cannot read " + file.string());
    }
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void replay(const fs::path& file) {
    const Life life = lifeFrom(contents(file));
    ASSERT_FALSE(life.steps.empty());
    const auto difference = firstDifference(life);
    EXPECT_FALSE(difference.has_value()) << "at step " << difference->step + 1 << ", "
                                         << textOf(life.steps[difference->step]) << ":\n"
                                         << difference->what;
}

/// The scripts of the folder beside this file, and the one that CSCLIENT_MODEL_SCRIPT names.
std::vector<fs::path> scripts() {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(CSCLIENT_MODEL_SCRIPTS)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    if (const char* const given = std::getenv("CSCLIENT_MODEL_SCRIPT")) {
        files.emplace_back(given);
    }
    return files;
}

class Script : public testing::TestWithParam<fs::path> {};

TEST_P(Script, IsLivedAsTheModelSays) {
    replay(GetParam());
}

std::string scriptName(const testing::TestParamInfo<fs::path>& info) {
    std::string name = info.param.stem().string();
    name.erase(std::remove_if(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }),
               name.end());
    return (info.param.parent_path() == fs::path(CSCLIENT_MODEL_SCRIPTS) ? "" : "Given") + name;
}

INSTANTIATE_TEST_SUITE_P(Scripts, Script, testing::ValuesIn(scripts()), scriptName);

}  // namespace
}  // namespace com_tesk::test
