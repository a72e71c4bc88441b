// Connections that the recorder leaves out when the disk is too slow.

#include "tools/recording/Recorder.h"

#include <gtest/gtest.h>

#include "tests/recording/TemporaryDirectory.h"
#include "tools/recording/Recording.h"

namespace com_tesk::recording {
namespace {

class RecorderWithASmallQueue : public ::testing::Test {
  protected:
    RecorderWithASmallQueue() {
        Recorder::Options options;
        options.file.file = directory.path("log.jsonl");
        options.isRaw = true;
        options.maxQueued = 1000;
        Header header;
        header.recorder = "test";
        header.mode = "proxy";
        recorder = std::make_unique<Recorder>(options, header, [](const std::string&) {});
    }

    void send(std::uint32_t connection, std::size_t size) {
        recorder->addBytes(connection, Side::HOST, std::string(size, '\0'));
    }

    /// Returns a word for each entry of a connection: its type or the size of its bytes.
    std::string recorded(std::uint32_t connection) {
        recorder->stop();
        Recording recording(directory.path("log.jsonl"));
        std::string text;
        while (const auto entry = recording.next()) {
            if (entry->connection != connection) {
                continue;
            }
            if (const auto* const raw = std::get_if<Raw>(&entry->content)) {
                text += std::to_string(raw->bytes.size()) + ' ';
            } else if (std::holds_alternative<Lost>(entry->content)) {
                text += "lost ";
            } else if (const auto* const unreadable = std::get_if<Unreadable>(&entry->content)) {
                text += unreadable->why.find("too slow") != std::string::npos ? "slow " : "";
            }
        }
        return text;
    }

    recording_test::TemporaryDirectory directory;
    std::unique_ptr<Recorder> recorder;
};

TEST_F(RecorderWithASmallQueue, TheRestOfAConnectionIsLeftOutAndALineSaysSo) {
    send(1, 5);
    send(1, 1000);
    send(1, 5);
    recorder->add(1, Lost{Side::HOST, "closed"});
    EXPECT_EQ(recorded(1), "5 slow lost ");
}

TEST_F(RecorderWithASmallQueue, OtherConnectionsAndLaterOnesAreRecorded) {
    send(1, 1000);
    send(2, 5);
    recorder->add(1, Lost{Side::HOST, "closed"});
    send(1, 6);
    EXPECT_EQ(recorded(2), "5 ");
    EXPECT_EQ(recorded(1), "slow lost 6 ");
}

}  // namespace
}  // namespace com_tesk::recording
