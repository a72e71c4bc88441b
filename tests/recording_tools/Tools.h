#pragma once

#include <string>

#include "tests/csx/CsxProcess.h"
#include "tests/recording/TemporaryDirectory.h"
#include "tests/recording_tools/Logs.h"

namespace com_tesk::recording_test {

using namespace csx_test;

/// Runs csx with recordings.
class ToolTest : public ::testing::Test {
  protected:
    static Ended csx(const Arguments& arguments) {
        Csx program(arguments);
        return ended(program);
    }

    std::string path(const std::string& name) const { return directory.path(name); }
    std::string log(const std::string& text) const { return directory.write("log.jsonl", text); }

    TemporaryDirectory directory;
};

}  // namespace com_tesk::recording_test
