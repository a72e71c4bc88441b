// The files that a recorder writes: rotation, failures, and what is stored when.

#include "tools/recording/RecordingFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <memory>
#include <system_error>

#include "tests/recording/TemporaryDirectory.h"
#include "tools/recording/Recording.h"

namespace com_tesk::recording {
namespace {

using namespace std::chrono_literals;

constexpr char kState[] = R"("type":"state","connections":[],"values":[],"version":"","protocol":0})";

std::string headerLine(const std::string& time, unsigned part) {
    return R"({"t":)" + time + R"(,"type":"recording","format":1,"recorder":"test","run":"r","part":)" +
           std::to_string(part) + R"(,"started":"now","mode":"proxy","host":"h:1"})" + "\n";
}

std::string head(const std::string& time, unsigned part) {
    return headerLine(time, part) + R"({"t":)" + time + ',' + kState + "\n";
}

class RecordingFileOf : public ::testing::Test {
  protected:
    void begin() {
        file =
            std::make_unique<RecordingFile>(options, header, [this](const std::string& line) { said += line + '\n'; });
    }
    /// Adds an entry that leaves the state as it is.
    void add(Time time, const std::string& client) { file->add({time, 0, Unreadable{Side::CLIENT, client}}); }
    static std::string line(const std::string& time, const std::string& client) {
        return R"({"t":)" + time + R"(,"type":"unreadable","side":"client","why":")" + client + "\"}\n";
    }
    /// Forbids files of more than so many bytes, as a full disk does.
    static void limitFiles(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = std::min(bytes, limit.rlim_max);
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~RecordingFileOf() override { limitFiles(RLIM_INFINITY); }

    /// Returns everything that can be read: "H S a b E ", with H for headers and S for states.
    std::string readBack() {
        Recording recording(options.file);
        std::string text;
        while (const auto entry = recording.next()) {
            const Unreadable* const note = std::get_if<Unreadable>(&entry->content);
            text += std::holds_alternative<Header>(entry->content)  ? "H"
                    : std::holds_alternative<State>(entry->content) ? "S"
                    : note != nullptr                               ? note->why
                                                                    : "E";
            text += ' ';
        }
        EXPECT_EQ(recording.flaws(), std::vector<std::string>{});
        return text;
    }

    recording_test::TemporaryDirectory directory;
    RecordingOptions options{directory.path("log.jsonl")};
    const Header header{1, "test", "r", 1, "now", "proxy", "h:1"};
    std::string said;
    std::unique_ptr<RecordingFile> file;
};

TEST_F(RecordingFileOf, BeginsWithHeaderAndStateAndEnds) {
    begin();
    EXPECT_EQ(directory.read("log.jsonl"), head("0.000000", 1)) << "written at once";
    add(5us, "a");
    add(3us, "b");
    file->flush(6us);
    const std::string two = head("0.000000", 1) + line("0.000005", "a") + line("0.000005", "b");
    EXPECT_EQ(directory.read("log.jsonl"), two) << "time never goes back";
    file->end(7us);
    EXPECT_EQ(directory.read("log.jsonl"), two + R"({"t":0.000007,"type":"end"})" + "\n");
    EXPECT_EQ(said, "");
}

TEST_F(RecordingFileOf, FilesAreNeverOverwritten) {
    directory.write("log.jsonl", "mine");
    EXPECT_THROW(begin(), std::system_error);
    EXPECT_EQ(directory.read("log.jsonl"), "mine");
    EXPECT_EQ(fileError(options.file), options.file + " exists; a recording never overwrites a file");
    directory.write("other.0003.jsonl", "mine");
    EXPECT_EQ(fileError(directory.path("other.jsonl")),
              directory.path("other.0003.jsonl") + " exists; it would become a part of this recording");
    EXPECT_EQ(fileError(directory.path("new.jsonl")), "");
    options.file = directory.path("none/log.jsonl");
    EXPECT_THROW(begin(), std::system_error);
}

TEST_F(RecordingFileOf, AStateFollowsEveryMinute) {
    begin();
    add(59'999'999us, "a");
    add(60s, "b");
    file->flush(100s);
    file->flush(121s);
    EXPECT_EQ(readBack(), "H S a S b S ");
}

TEST_F(RecordingFileOf, RotatesBySize) {
    options.rotateSize = 1024;
    begin();
    for (int i = 0; i < 10; ++i) {
        add(Time(i), std::string(300, static_cast<char>('a' + i)));
    }
    file->end(20us);
    EXPECT_TRUE(directory.has("log.0001.jsonl"));
    EXPECT_TRUE(directory.has("log.0003.jsonl"));
    EXPECT_EQ(directory.read("log.0002.jsonl").substr(0, head("0.000003", 2).size()), head("0.000003", 2));
    std::string expected;
    for (int i = 0; i < 10; ++i) {
        expected += (i % 3 == 0 ? "H S " : "") + std::string(300, static_cast<char>('a' + i)) + ' ';
    }
    EXPECT_EQ(readBack(), expected + "E ");
}

TEST_F(RecordingFileOf, RotatesByTimeAndKeepsSomeFiles) {
    options.rotateTime = 10s;
    options.keep = 2;
    begin();
    for (const int second : {1, 11, 12, 21, 31, 40}) {
        add(std::chrono::seconds(second), std::to_string(second));
    }
    file->end(40s);
    EXPECT_FALSE(directory.has("log.0001.jsonl"));
    EXPECT_FALSE(directory.has("log.0002.jsonl"));
    EXPECT_EQ(readBack(), "H S 21 H S 31 40 E ");
    EXPECT_TRUE(Recording(options.file).isIncomplete());
}

TEST_F(RecordingFileOf, KeepsTheCurrentFileOnly) {
    options.rotateTime = 10s;
    options.keep = 1;
    begin();
    add(11s, "a");
    file->end(12s);
    EXPECT_FALSE(directory.has("log.0001.jsonl"));
    EXPECT_EQ(readBack(), "H S a E ");
}

TEST_F(RecordingFileOf, AFullDiskCostsLinesAndIsReportedOnce) {
    begin();
    add(1us, "a");
    file->flush(2us);
    limitFiles(directory.read("log.jsonl").size() + line("0.000003", "b").size() + 10);
    add(3us, "b");
    add(4us, "c");
    file->flush(5us);
    add(6us, "d");
    file->flush(7us);
    file->flush(2s);
    const std::string failed = options.file + ": File too large; lines are dropped until writing works again\n";
    EXPECT_EQ(said, failed);
    EXPECT_EQ(readBack(), "H S a b ");
    limitFiles(RLIM_INFINITY);
    file->flush(2s + 500ms);
    EXPECT_EQ(said, failed) << "tried once a second";
    file->flush(4s);
    EXPECT_EQ(said, failed + options.file + ": written again; 2 lines were lost\n");
    add(5s, "e");
    file->end(6s);
    EXPECT_EQ(readBack(), "H S a b 2 lines were lost: File too large S e E ");
}

TEST_F(RecordingFileOf, AFullDiskAtTheEndIsReported) {
    begin();
    limitFiles(1);
    add(1us, "a");
    file->end(2us);
    EXPECT_EQ(said, options.file + ": File too large; lines are dropped until writing works again\n" + options.file +
                        ": 2 lines were lost\n");
    EXPECT_EQ(readBack(), "H S ");
}

TEST_F(RecordingFileOf, AFullDiskWhileRotatingCostsLines) {
    options.rotateTime = 1s;
    begin();
    limitFiles(1);
    add(2s, "a");
    file->flush(3s);
    limitFiles(RLIM_INFINITY);
    file->flush(5s);
    add(5s, "b");
    file->end(5s);
    EXPECT_EQ(directory.read("log.jsonl").substr(0, headerLine("5.000000", 2).size()), headerLine("5.000000", 2));
    EXPECT_EQ(readBack(), "H S H 3 lines were lost: File too large S b E ");
}

}  // namespace
}  // namespace com_tesk::recording
