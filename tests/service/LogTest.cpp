#include "tools/service/Log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "tests/service/NotifySocket.h"

namespace com_tesk::service_test {
namespace {

using service::Level;
using service::LineLimit;
using service::Log;
using namespace std::chrono_literals;

/// A pipe that takes the lines.
class Lines : public testing::Test {
  protected:
    Lines() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }
    ~Lines() override {
        close(ends[0]);
        close(ends[1]);
    }

    int descriptor() const { return ends[1]; }

    /// Returns what was written since the last call. The log writes the mark too.
    std::string text() const {
        EXPECT_EQ(write(ends[1], "#", 1), 1);
        std::string all;
        for (char c = 0; read(ends[0], &c, 1) == 1 && c != '#';) {
            all += c;
        }
        return all;
    }

    /// Fills the pipe, and returns how many bytes that took.
    std::size_t fill() const {
        const std::string page(4'096, 'x');
        std::size_t size = 0;
        const int flags = fcntl(ends[1], F_GETFL);
        EXPECT_EQ(fcntl(ends[1], F_SETFL, flags | O_NONBLOCK), 0);
        while (write(ends[1], page.data(), page.size()) == static_cast<ssize_t>(page.size())) {
            size += page.size();
        }
        EXPECT_EQ(fcntl(ends[1], F_SETFL, flags), 0);
        return size;
    }

    void drain(std::size_t size) const {
        for (char c = 0; size > 0 && read(ends[0], &c, 1) == 1; --size) {
        }
    }

    std::string device() const {
        struct stat status {};
        EXPECT_EQ(fstat(ends[1], &status), 0);
        return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
    }

  private:
    std::array<int, 2> ends{};
};

TEST_F(Lines, BeginWithTheNameOfTheLevel) {
    Log log(descriptor(), Log::Form::NAMES);
    log.error("a");
    log.warning("b");
    log.notice("c");
    log.info("d");
    EXPECT_EQ(text(), "error: a\nwarning: b\nnotice: c\ninfo: d\n");
}

TEST_F(Lines, BeginWithTheNumberOfTheLevelInTheJournal) {
    Log log(descriptor(), Log::Form::JOURNAL);
    log.setLeast(Level::DEBUG);
    log.error("a");
    log.warning("b");
    log.notice("c");
    log.info("d");
    log.debug("e");
    EXPECT_EQ(text(), "<3>a\n<4>b\n<5>c\n<6>d\n<7>e\n");
}

TEST_F(Lines, OfLessUrgentLevelsAreLeftOut) {
    Log log(descriptor(), Log::Form::NAMES);
    log.debug("not by default");
    log.setLeast(Level::WARNING);
    log.notice("b");
    log.writeRarely(Level::INFO, "key", "c");
    log.warning("d");
    EXPECT_EQ(text(), "warning: d\n");
}

TEST_F(Lines, OfAPeerCannotAddALine) {
    Log log(descriptor(), Log::Form::JOURNAL);
    log.info(std::string("a\n<3>b\r\x1B[31m\x7F\0c", 15) + "\xC3\xA9");
    EXPECT_EQ(text(), "<6>a\\x0A<3>b\\x0D\\x1B[31m\\x7F\\x00c\xC3\xA9\n");
}

TEST_F(Lines, AreLostWhileTheReaderDoesNotRead) {
    const std::size_t size = fill();
    Log log(descriptor(), Log::Form::NAMES);
    for (int i = 0; i < 1'000; ++i) {
        log.info("lost");  // Only the first one waits. The test ends late otherwise.
    }
    drain(size);
    log.info("again");
    log.info("and again");
    EXPECT_EQ(text(), "warning: 1000 lines of the log were lost\ninfo: again\ninfo: and again\n");
}

TEST_F(Lines, WithTheSameKeyAreRare) {
    Log log(descriptor(), Log::Form::NAMES);
    log.writeRarely(Level::WARNING, "x", "first");
    log.writeRarely(Level::WARNING, "x", "second");
    log.writeRarely(Level::WARNING, "y", "other");
    EXPECT_EQ(text(), "warning: first\nwarning: other\n");
}

TEST_F(Lines, GoToTheJournalWhenDeviceAndInodeAreItsOwn) {
    unsetenv("JOURNAL_STREAM");
    EXPECT_EQ(Log::formOf(descriptor()), Log::Form::NAMES);
    {
        const Variable stream("JOURNAL_STREAM", device());
        EXPECT_EQ(Log::formOf(descriptor()), Log::Form::JOURNAL);
        EXPECT_EQ(Log::formOf(-1), Log::Form::NAMES);
    }
    for (const std::string& other : {device() + '0', '1' + device(), std::string("8:1"), std::string()}) {
        const Variable stream("JOURNAL_STREAM", other);
        EXPECT_EQ(Log::formOf(descriptor()), Log::Form::NAMES) << other;
    }
}

TEST(LineLimit, CountsTheLinesThatItLeavesOut) {
    LineLimit limit(60s);
    const LineLimit::Clock::time_point start{};
    EXPECT_EQ(limit.admit("a", start), 0U);
    EXPECT_EQ(limit.admit("a", start + 1s), std::nullopt);
    EXPECT_EQ(limit.admit("a", start + 59'999ms), std::nullopt);
    EXPECT_EQ(limit.admit("b", start + 59'999ms), 0U);
    EXPECT_EQ(limit.admit("a", start + 60s), 2U);
    EXPECT_EQ(limit.admit("a", start + 61s), std::nullopt);
    EXPECT_EQ(limit.admit("a", start + 120s), 1U);
    EXPECT_EQ(limit.admit("a", start + 180s), 0U);
}

TEST(LineLimit, FurtherKeysShareOneLimit) {
    LineLimit limit(60s, 2);
    const LineLimit::Clock::time_point start{};
    EXPECT_EQ(limit.admit("a", start), 0U);
    EXPECT_EQ(limit.admit("b", start), 0U);
    EXPECT_EQ(limit.admit("c", start), 0U);
    EXPECT_EQ(limit.admit("d", start), std::nullopt);
    EXPECT_EQ(limit.admit("b", start + 1s), std::nullopt);
    EXPECT_EQ(limit.admit("e", start + 60s), 0U) << "the key a has expired";
    EXPECT_EQ(limit.admit("d", start + 60s), 1U);
    EXPECT_EQ(limit.admit("b", start + 60s), 1U) << "a key that left lines out has not expired";
}

}  // namespace
}  // namespace com_tesk::service_test
