// `csx replay --check --bless`: the recording gets what the program publishes.

#include <filesystem>

#include "tests/replay/ReplayProcess.h"

namespace com_tesk::replay_test {
namespace {

class Bless : public Replay {
  protected:
    std::string copyOf(const std::string& name) const {
        std::filesystem::copy_file(dataFile(name), directory.path("log.jsonl"));
        return directory.path("log.jsonl");
    }
    std::size_t fileCount() const {
        std::size_t count = 0;
        for (const auto& file : std::filesystem::directory_iterator(directory.path(""))) {
            count += file.exists() ? 1 : 0;
        }
        return count;
    }
};

TEST_F(Bless, TheProgramIsTheNewExpectation) {
    const std::string log = copyOf("three-losses.jsonl");
    const Arguments part{"--for", "900ms", "--check", "--window", kWide};
    EXPECT_EQ(follow(log, part + Arguments{"--bless"}, "changed"), 0) << err();
    EXPECT_TRUE(contains(out(), "expected 6, got 6.5")) << "the differences are shown: " << out();
    EXPECT_TRUE(contains(err(), log + " now expects what the program has published")) << err();
    EXPECT_EQ(fileCount(), 1U);
    EXPECT_TRUE(contains(directory.read("log.jsonl"), R"(["position",6.5])"));
    EXPECT_TRUE(contains(directory.read("log.jsonl"), R"(["position",16.0])")) << "after the part that was played";
    EXPECT_EQ(follow(log, part, "changed"), 0) << out() << err();
    EXPECT_EQ(follow(log, part), 1) << out() << err();
}

TEST_F(Bless, AProgramThatEndsEarlyChangesNothing) {
    const std::string log = copyOf("three-losses.jsonl");
    const std::string before = directory.read("log.jsonl");
    EXPECT_EQ(follow(log, {"--check", "--bless"}, "exits"), 4);
    EXPECT_EQ(directory.read("log.jsonl"), before);
    EXPECT_EQ(fileCount(), 1U);
}

}  // namespace
}  // namespace com_tesk::replay_test
