#include <gtest/gtest.h>
#include <unistd.h>

#include "tools/csx/Lines.h"

namespace com_tesk::csx {
namespace {

/// Reads the lines of a pipe to which the test writes.
class LinesOfAPipe : public testing::Test {
  protected:
    LinesOfAPipe() {
        EXPECT_EQ(pipe(ends), 0);
        lines = std::make_unique<Lines>(ends[0]);
    }
    ~LinesOfAPipe() override {
        end();
        close(ends[0]);
    }

    void write(const std::string& text) {
        ASSERT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        lines->read();
    }
    void end() {
        if (ends[1] >= 0) {
            close(ends[1]);
            ends[1] = -1;
        }
    }
    /// Ends the input, and reads its end.
    void readEnd() {
        end();
        lines->read();
    }
    /// Returns the lines that are there: "[a][b]".
    std::string taken() {
        std::string all;
        while (const auto line = lines->next()) {
            all += '[' + *line + ']';
        }
        return all;
    }

    int ends[2] = {-1, -1};
    std::unique_ptr<Lines> lines;
};

TEST_F(LinesOfAPipe, AreTheSameForEachCut) {
    const std::string text = "one\r\n\ntwo\n\r\nthr\ree\r\r\nfour";
    for (std::size_t cut = 1; cut < text.size(); ++cut) {
        int pipeEnds[2];
        ASSERT_EQ(pipe(pipeEnds), 0);
        Lines cutLines(pipeEnds[0]);
        std::string all;
        const auto take = [&] {
            while (const auto line = cutLines.next()) {
                all += '[' + *line + ']';
            }
        };
        for (const std::string& part : {text.substr(0, cut), text.substr(cut)}) {
            ASSERT_EQ(::write(pipeEnds[1], part.data(), part.size()), static_cast<ssize_t>(part.size()));
            cutLines.read();
            take();
        }
        close(pipeEnds[1]);
        EXPECT_FALSE(cutLines.isOver());
        cutLines.read();
        take();
        EXPECT_TRUE(cutLines.isOver());
        EXPECT_EQ(all, "[one][][two][][thr\ree\r][four]") << "cut after " << cut;
        close(pipeEnds[0]);
    }
}

TEST_F(LinesOfAPipe, AreReadyWhenTheyAreWhole) {
    EXPECT_FALSE(lines->isReady());
    write("on");
    EXPECT_FALSE(lines->isReady());
    EXPECT_EQ(taken(), "");
    write("e\ntw");
    EXPECT_TRUE(lines->isReady());
    EXPECT_EQ(taken(), "[one]");
    EXPECT_FALSE(lines->isReady());
    write("o\n");
    EXPECT_EQ(taken(), "[two]");
    EXPECT_FALSE(lines->isOver());
}

TEST_F(LinesOfAPipe, AtTheEndALineNeedsNoLineFeed) {
    write("a\nb");
    EXPECT_EQ(taken(), "[a]");
    readEnd();
    EXPECT_TRUE(lines->isOver());
    EXPECT_TRUE(lines->isReady());
    EXPECT_EQ(taken(), "[b]");
    EXPECT_EQ(lines->next(), std::nullopt);
}

TEST_F(LinesOfAPipe, AtTheEndThereIsNoEmptyLine) {
    write("a\n");
    readEnd();
    EXPECT_EQ(taken(), "[a]");
}

TEST_F(LinesOfAPipe, OfAnEmptyInputAreNone) {
    readEnd();
    EXPECT_TRUE(lines->isOver());
    EXPECT_EQ(taken(), "");
}

TEST_F(LinesOfAPipe, HaveABoundWithoutLineFeeds) {
    const std::string block(32'768, 'x');
    for (int blocks = 0; blocks < 33 && !lines->isOver(); ++blocks) {
        write(block);
    }
    EXPECT_TRUE(lines->isOver());
}

TEST_F(LinesOfAPipe, MayHaveZeroBytes) {
    write(std::string("a\0b\n", 4));
    EXPECT_EQ(lines->next(), std::string("a\0b", 3));
}

TEST(LinesOfNothing, EndAtOnce) {
    Lines lines(-1);
    lines.read();
    EXPECT_TRUE(lines.isOver());
}

}  // namespace
}  // namespace com_tesk::csx
