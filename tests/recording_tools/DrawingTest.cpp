// csx plot as a process, with gnuplot where it is installed, and with programs in its place.

#include <sys/stat.h>

#include <csignal>
#include <cstdlib>

#include "tests/recording_tools/Tools.h"

namespace com_tesk::recording_test {
namespace {

class Drawing : public ToolTest {
  protected:
    /// Runs csx plot with this shell script in place of gnuplot; an empty text for none.
    Csx::Setup withGnuplot(const std::string& script) const {
        Csx::Setup setup = Csx::setup();
        if (!script.empty()) {
            const std::string program = directory.write("gnuplot", "#!/bin/sh\n" + script);
            EXPECT_EQ(chmod(program.c_str(), S_IRWXU), 0);
        }
        setup.environment.push_back("PATH=" + path("") + (script.empty() ? "" : ":/usr/bin:/bin"));
        setup.environment.push_back("TMPDIR=" + path(""));
        return setup;
    }
    Arguments arguments() const { return {"plot", log(threeLosses()), "altitude", "button", "-o", path("out.svg")}; }
};

TEST_F(Drawing, GnuplotGetsTheScriptAndTheValues) {
    Csx csx(arguments(), withGnuplot("cat; echo VALUES; cat /dev/fd/3\n"));
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
    const std::string result = directory.read("out.svg");
    EXPECT_EQ(result.find("set terminal svg "), 0U) << result;
    EXPECT_TRUE(contains(result, "set ylabel 'button' noenhanced\n")) << result;
    EXPECT_TRUE(contains(result, "VALUES\n1.000004 0\n1.500000 12.5\n")) << result;
    for (const auto& left : std::filesystem::directory_iterator(path(""))) {
        EXPECT_EQ(left.path().string().find("csx-plot"), std::string::npos) << left.path();
    }
}

TEST_F(Drawing, AMissingGnuplotIsNamed) {
    Csx csx(arguments(), withGnuplot(""));
    EXPECT_EQ(csx.exitCode(), 1);
    EXPECT_EQ(csx.errText(), "csx: gnuplot is not installed; on Debian, the package gnuplot-nox has it\n");
    EXPECT_FALSE(directory.has("out.svg"));
}

TEST_F(Drawing, AFailureOfGnuplotLeavesTheEarlierPicture) {
    directory.write("out.svg", "mine");
    Csx csx(arguments(), withGnuplot("echo half a picture; echo no terminal >&2; exit 3\n"));
    EXPECT_EQ(csx.exitCode(), 1);
    EXPECT_EQ(csx.errText(), "no terminal\ncsx: gnuplot has failed; the picture was not written\n");
    EXPECT_EQ(directory.read("out.svg"), "mine");
}

TEST_F(Drawing, ASignalEndsAGnuplotThatHangs) {
    Csx csx(arguments(), withGnuplot("echo $$ > " + path("process") + "; exec sleep 600\n"));
    ASSERT_TRUE(test::waitUntil([&] { return contains(directory.read("process"), "\n"); }));
    csx.signal(SIGINT);
    EXPECT_EQ(csx.exitCode(), -1);
    const int process = std::stoi(directory.read("process"));
    EXPECT_TRUE(test::waitUntil([&] { return kill(process, 0) != 0; }));
    EXPECT_FALSE(directory.has("out.svg"));
}

TEST_F(Drawing, GnuplotDrawsBothKindsOfPictures) {
    if (access("/usr/bin/gnuplot", X_OK) != 0) {
        GTEST_SKIP() << "gnuplot is not installed";
    }
    const std::string text = headerLine() + connectionLines(1, 1) + updateLine("2.000000", R"(["<b>&'\"$x`\\",1.0])") +
                             updateLine("3.000000", R"(["<b>&'\"$x`\\",2.0])");
    const std::string file = log(text);
    const Ended svg = csx({"plot", file, "<b>&'\"$x`\\", "altitude", "-o", path("out.svg")});
    EXPECT_EQ(svg.code, 0) << svg.err;
    EXPECT_EQ(svg.err, "");
    EXPECT_TRUE(contains(directory.read("out.svg"), "&lt;b>&amp;'")) << directory.read("out.svg").substr(0, 2000);
    EXPECT_TRUE(contains(directory.read("out.svg"), "</svg>"));
    EXPECT_EQ(csx({"plot", file, "altitude", "-o", path("out.png")}).code, 0);
    EXPECT_EQ(directory.read("out.png").substr(0, 8), "\x89PNG\r\n\x1A\n");
}

}  // namespace
}  // namespace com_tesk::recording_test
