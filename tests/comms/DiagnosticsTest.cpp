#include "comms/Diagnostics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <future>
#include <iostream>
#include <sstream>

#include "tests/support/Allocations.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using diagnostics::Decimal;

/// A stream's buffer that allocates no memory, and knows how much of its text was flushed.
class FixedBuffer : public std::streambuf {
  public:
    explicit FixedBuffer(std::ostream& redirected) : stream(redirected), previous(redirected.rdbuf(this)) {}
    FixedBuffer(const FixedBuffer&) = delete;
    FixedBuffer& operator=(const FixedBuffer&) = delete;
    ~FixedBuffer() override { stream.rdbuf(previous); }

    std::string_view text() const { return {characters, used}; }
    bool isFlushed() const { return used == flushed; }

  protected:
    int_type overflow(int_type character) override {
        const char single = traits_type::to_char_type(character);
        xsputn(&single, 1);
        return traits_type::not_eof(character);
    }

    std::streamsize xsputn(const char* added, std::streamsize count) override {
        const std::size_t fitting = std::min(static_cast<std::size_t>(count), sizeof characters - used);
        std::copy_n(added, fitting, characters + used);
        used += fitting;
        return count;
    }

    int sync() override {
        flushed = used;
        return 0;
    }

  private:
    std::ostream& stream;
    std::streambuf* previous;
    char characters[4096] = {};
    std::size_t used = 0;
    std::size_t flushed = 0;
};

template <typename Number>
std::string decimal(Number value) {
    return std::string(std::string_view(Decimal(value)));
}

TEST(Diagnostics, ProgressGoesToStandardOutputAsOneInsertion) {
    const CapturedStreams streams;
    const std::string text(10'000, 'x');
    diagnostics::progress({"connected to ", "127.0.0.1"});
    EXPECT_EQ(streams.outInsertions(), 1);
    diagnostics::progress({text, text});
    EXPECT_EQ(streams.outInsertions(), 2);
    diagnostics::progress({});
    EXPECT_EQ(streams.out(), "connected to 127.0.0.1\n" + text + text + "\n\n");
    EXPECT_EQ(streams.err(), "");
}

TEST(Diagnostics, ErrorGoesToStandardErrorAsOneInsertion) {
    const CapturedStreams streams;
    diagnostics::error({"id ", Decimal(7U), " unknown", " ", Decimal(-4)});
    EXPECT_EQ(streams.err(), "id 7 unknown -4\n");
    EXPECT_EQ(streams.errInsertions(), 1);
    diagnostics::error({""});
    diagnostics::error({std::string_view("a\0b%s\x80", 6)});
    EXPECT_EQ(streams.err(), std::string("id 7 unknown -4\n\na\0b%s\x80\n", 24));
    EXPECT_EQ(streams.out(), "");
}

TEST(Diagnostics, LinesAreFlushedAlsoWithoutMemoryForThem) {
    const std::string text(500, 'x');
    for (const std::size_t largestAllocation : {std::size_t{0}, std::size_t{1'000'000}}) {
        {
            // Nothing may follow on standard error, because it flushes standard output too.
            const FixedBuffer out(std::cout);
            {
                const AllocationLimit limit(largestAllocation);
                EXPECT_NO_THROW(diagnostics::progress({text, " progress"}));
            }
            EXPECT_EQ(out.text(), text + " progress\n");
            EXPECT_TRUE(out.isFlushed());
        }
        const FixedBuffer err(std::cerr);
        {
            const AllocationLimit limit(largestAllocation);
            EXPECT_NO_THROW(diagnostics::error({text, " error"}));
        }
        EXPECT_EQ(err.text(), text + " error\n");
        EXPECT_TRUE(err.isFlushed());
    }
}

TEST(Diagnostics, TheStreamsNumberFormatDoesNotTouchALine) {
    const CapturedStreams streams;
    std::cout << std::hex;
    diagnostics::progress({"id ", Decimal(255)});
    std::cout << std::dec;
    EXPECT_EQ(streams.out(), "id 255\n");
}

TEST(Diagnostics, LinesOfDifferentThreadsNeverMix) {
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    const CapturedStreams streams;
    std::vector<std::future<void>> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.push_back(std::async(std::launch::async, [i] {
            const std::string name(20, static_cast<char>('a' + i));
            for (int line = 0; line < kLines; ++line) {
                diagnostics::error({name, " ", name});
            }
        }));
    }
    threads.clear();
    int whole = 0;
    std::istringstream text(streams.err());
    for (std::string line; std::getline(text, line); ++whole) {
        ASSERT_EQ(line, std::string(20, line[0]) + " " + std::string(20, line[0]));
    }
    EXPECT_EQ(whole, kThreads * kLines);
}

TEST(DiagnosticsDecimal, WritesEveryNumber) {
    for (const unsigned int number : {0U, 9U, 10U, 2147483648U, UINT_MAX}) {
        EXPECT_EQ(decimal(number), std::to_string(number));
    }
    for (const int number : {0, -1, -10, INT_MAX, INT_MIN, INT_MIN + 1}) {
        EXPECT_EQ(decimal(number), std::to_string(number));
    }
    const Decimal original(-12345);
    const Decimal copy = original;
    EXPECT_EQ(std::string_view(copy), "-12345");
    EXPECT_NE(std::string_view(copy).data(), std::string_view(original).data());
}

}  // namespace
}  // namespace com_tesk::test
