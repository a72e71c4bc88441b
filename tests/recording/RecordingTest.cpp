// Files of recordings, whole and damaged.

#include "tools/recording/Recording.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

#include "tests/recording/TemporaryDirectory.h"
#include "tools/recording/RecordingNames.h"

namespace com_tesk::recording {
namespace {

using Names = std::vector<std::string>;

std::string header(const std::string& run, unsigned part, const std::string& time = "0.000000", unsigned format = 1) {
    return R"({"t":)" + time + R"(,"type":"recording","format":)" + std::to_string(format) +
           R"(,"recorder":"csx 1","run":")" + run + R"(","part":)" + std::to_string(part) +
           R"(,"started":"2026-11-21T22:04:05.123456Z","mode":"proxy","host":"127.0.0.1:55580"})" + "\n";
}

std::string line(const std::string& seconds, const std::string& name) {
    return R"({"t":)" + seconds + R"(,"type":"update","connection":1,"values":[[")" + name + "\",1.0]]}\n";
}

/// Returns the names of the values, and H for each header: "H a b".
std::string contentOf(Recording& recording) {
    std::string text;
    while (const auto entry = recording.next()) {
        const Update* const update = std::get_if<Update>(&entry->content);
        text += text.empty() ? "" : " ";
        text += update != nullptr                                ? update->values.at(0).name
                : std::holds_alternative<Header>(entry->content) ? "H"
                                                                 : "?";
    }
    return text;
}

class RecordingOf : public ::testing::Test {
  protected:
    std::string path(const std::string& name) const { return directory.path(name); }

    recording_test::TemporaryDirectory directory;
};

TEST_F(RecordingOf, OneFileIsReadTwice) {
    Recording recording(directory.write("log.jsonl", header("r", 1) + line("0.5", "a") + line("0.5", "b")));
    EXPECT_EQ(contentOf(recording), "H a b");
    EXPECT_FALSE(recording.next().has_value());
    recording.rewind();
    EXPECT_EQ(contentOf(recording), "H a b");
    EXPECT_EQ(recording.flaws(), Names{});
    EXPECT_FALSE(recording.isIncomplete());
    EXPECT_EQ(recording.header().run, "r");
}

TEST_F(RecordingOf, ATornLastLineCostsThatLine) {
    const std::string last = line("2", "c");
    for (const std::size_t size : {std::size_t{1}, last.size() / 2, last.size() - 2}) {
        Recording recording(directory.write("log.jsonl", header("r", 1) + line("1", "a") + last.substr(0, size)));
        EXPECT_EQ(contentOf(recording), "H a");
        EXPECT_EQ(recording.flaws(), Names{path("log.jsonl") + ":3: the line is torn"});
    }
    Recording recording(directory.write("log.jsonl", header("r", 1) + last.substr(0, last.size() - 1)));
    EXPECT_EQ(contentOf(recording), "H c");
}

TEST_F(RecordingOf, DamagedAndReorderedLinesAreLeftOut) {
    Recording recording(directory.write("log.jsonl", header("r", 1) + line("2", "a") + "garbage\n" + line("1", "b") +
                                                         header("other", 1, "3") + "\n" + line("2", "c")));
    EXPECT_EQ(contentOf(recording), "H a c");
    EXPECT_EQ(recording.flaws(),
              (Names{path("log.jsonl") + ":3: not JSON", path("log.jsonl") + ":4: earlier than the line before",
                     path("log.jsonl") + ":5: the header of another recording", path("log.jsonl") + ":6: not JSON"}));
}

TEST_F(RecordingOf, FlawsAreCounted) {
    std::string text = header("r", 1);
    for (int i = 0; i < 13; ++i) {
        text += "x\n";
    }
    Recording recording(directory.write("log.jsonl", text));
    EXPECT_EQ(contentOf(recording), "H");
    ASSERT_EQ(recording.flaws().size(), 11U);
    EXPECT_EQ(recording.flaws().back(), "and 3 lines more");
    recording.rewind();
    EXPECT_EQ(recording.flaws(), Names{});
}

TEST_F(RecordingOf, OlderFilesComeFirst) {
    directory.write("log.0002.jsonl", header("r", 2, "2") + line("2.5", "b"));
    directory.write("log.0010.jsonl", header("r", 10, "3") + line("3.5", "c"));
    directory.write("log.0001.jsonl", header("r", 1) + line("1.5", "a"));
    directory.write("log.0003.jsonl", header("of another recording", 3) + line("2.6", "x"));
    directory.write("log.1.jsonl", header("r", 1) + line("0", "x"));
    directory.write("blog.0001.jsonl", header("r", 1) + line("0", "x"));
    directory.write("log.jsonl", header("r", 11, "4") + line("4.5", "d"));
    Recording all(path("log.jsonl"));
    EXPECT_EQ(contentOf(all), "H a H b H c H d");
    EXPECT_FALSE(all.isIncomplete());
    Recording some(path("log.0002.jsonl"));
    EXPECT_EQ(contentOf(some), "H a H b");
    EXPECT_EQ(some.flaws(), Names{});
}

TEST_F(RecordingOf, RemovedFilesMakeItIncomplete) {
    directory.write("log.0002.jsonl", header("r", 2, "2") + line("2.5", "b"));
    Recording recording(directory.write("log.jsonl", header("r", 3, "3") + line("3", "c")));
    EXPECT_TRUE(recording.isIncomplete());
    EXPECT_EQ(recording.header().part, 2U);
    EXPECT_EQ(contentOf(recording), "H b H c");
}

TEST_F(RecordingOf, AFileThatWasJustBegunIsNotNeeded) {
    directory.write("log.0001.jsonl", header("r", 1) + line("1", "a"));
    Recording torn(directory.write("log.jsonl", header("r", 2, "2").substr(0, 30)));
    EXPECT_EQ(contentOf(torn), "H a");
    EXPECT_EQ(torn.flaws().size(), 1U);
    Recording empty(directory.write("log.jsonl", ""));
    EXPECT_EQ(contentOf(empty), "H a");
    std::filesystem::remove(path("log.jsonl"));
    Recording missing(path("log.jsonl"));
    EXPECT_EQ(contentOf(missing), "H a");
}

TEST_F(RecordingOf, OtherFilesAreRefused) {
    EXPECT_THROW(Recording(path("none.jsonl")), std::system_error);
    EXPECT_THROW(Recording(path("")), std::system_error);
    const auto reason = [&](const std::string& text) {
        try {
            Recording{directory.write("log.jsonl", text)};
        } catch (const std::runtime_error& error) {
            return std::string(error.what()).substr(path("log.jsonl").size());
        }
        return std::string("none");
    };
    EXPECT_EQ(reason(""), ": not a recording: it is empty");
    EXPECT_EQ(reason("\n"), ": not a recording: not JSON");
    EXPECT_EQ(reason(line("1", "a")), ": not a recording: its first line has another type");
    EXPECT_EQ(reason(header("r", 1, "0", 2)), ": the recording has format 2, this program reads format 1");
    EXPECT_EQ(reason(header("r", 1).substr(0, 20)), ": not a recording: not JSON");
}

TEST_F(RecordingOf, LongLinesAreLeftOutInBoundedMemory) {
    const std::string longLine(300'000, ' ');
    Recording recording(
        directory.write("log.jsonl", header("r", 1) + longLine + line("1", "a") + longLine + "\n" + line("1", "b")));
    EXPECT_EQ(contentOf(recording), "H a b");
    EXPECT_EQ(recording.flaws(), Names{path("log.jsonl") + ":3: not JSON"});
}

TEST(RecordingNames, PartsAreNumberedBeforeTheExtension) {
    EXPECT_EQ(rotatedPath("log.jsonl", 1), "log.0001.jsonl");
    EXPECT_EQ(rotatedPath("/a.b/log", 12), "/a.b/log.0012");
    EXPECT_EQ(rotatedPath("a.b.jsonl", 12345), "a.b.12345.jsonl");
}

}  // namespace
}  // namespace com_tesk::recording
