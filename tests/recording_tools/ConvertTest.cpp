// csx convert --to csv as a process, and what all commands do with their results.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "tests/recording_tools/Tools.h"

namespace com_tesk::recording_test {
namespace {

using Convert = ToolTest;

/// Makes more CSV than pipes hold.
std::string manyValues() {
    std::string text = headerLine();
    for (int i = 0; i < 20'000; ++i) {
        text += updateLine("1.000000", R"(["altitude",1.0],["gear",1.0])");
    }
    return text;
}

TEST_F(Convert, CsvHasALineForEachValue) {
    const std::string text = headerLine() +
                             updateLine("1.000000", R"(["a,b",12.5],["say \"x\"",3,"integer"],[{"id":77},"-inf"])") +
                             publishLine("2.500001", R"(["line\r\nend",-0.0],[{"hex":"ff"},0.1])", 4);
    const Ended result = csx({"convert", log(text), "--to", "csv"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out,
              "time,utc,connection,direction,name,value,type\r\n"
              "1.000000,2026-11-21T22:04:06.123456Z,1,update,\"a,b\",12.5,float\r\n"
              "1.000000,2026-11-21T22:04:06.123456Z,1,update,\"say \"\"x\"\"\",3,integer\r\n"
              "1.000000,2026-11-21T22:04:06.123456Z,1,update,#77,-inf,float\r\n"
              "2.500001,2026-11-21T22:04:07.623457Z,4,publish,\"line\r\nend\",-0,float\r\n"
              "2.500001,2026-11-21T22:04:07.623457Z,4,publish,\xFF,0.1,float\r\n");
}

TEST_F(Convert, AConfirmedInputHasItsFirstValue) {
    const Ended result = csx({"convert", log(headerLine() + connectionLines(1, 1)), "--to", "csv"});
    EXPECT_TRUE(contains(result.out, "1.000004,2026-11-21T22:04:06.123460Z,1,update,gear,1,integer\r\n")) << result.out;
}

TEST_F(Convert, AHeaderWithoutATimeBeginsIn1970) {
    std::string header = headerLine();
    header.replace(header.find("2026"), 4, "then");
    const Ended result = csx({"convert", log(header + updateLine("1.000000", R"(["a",1.0])")), "--to", "csv"});
    EXPECT_TRUE(contains(result.out, "1.000000,1970-01-01T00:00:01.000000Z,1,")) << result.out;
}

TEST_F(Convert, AFileIsReplacedOnlyWhenTheResultIsComplete) {
    const std::string file = log(threeLosses());
    const std::string target = directory.write("out.csv", "mine");
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{100, limit.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    Csx full({"convert", file, "--to", "csv", "-o", target});
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(full.exitCode(), 1);
    EXPECT_TRUE(contains(full.errText(), "cannot write " + target + ": File too large")) << full.errText();
    EXPECT_EQ(directory.read("out.csv"), "mine");
    EXPECT_EQ(csx({"convert", file, "--to", "csv", "-o", target}).code, 0);
    EXPECT_EQ(directory.read("out.csv"), csx({"convert", file, "--to", "csv"}).out);
    for (const auto& left : std::filesystem::directory_iterator(path(""))) {
        EXPECT_EQ(left.path().string().find(".part"), std::string::npos) << left.path();
    }
}

TEST_F(Convert, ResultsThatCannotBeWrittenAreReported) {
    const std::string file = log(threeLosses());
    for (const char* const target : {"csv", "pcap", "scenario"}) {
        const Ended result = csx({"convert", file, "--to", target, "-o", path("none/out")});
        EXPECT_EQ(result.code, 1) << target;
        EXPECT_TRUE(contains(result.err, "cannot write " + path("none/out") + ": No such file or directory"))
            << result.err;
    }
    EXPECT_TRUE(contains(csx({"convert", file, "--to", "csv", "-o", "/dev/full"}).err, "No space left on device"));
    const std::string before = directory.read("log.jsonl");
    const Ended itself = csx({"convert", file, "--to", "csv", "-o", path("./log.jsonl")});
    EXPECT_EQ(itself.code, 1);
    EXPECT_TRUE(contains(itself.err, "is the recording itself")) << itself.err;
    EXPECT_EQ(directory.read("log.jsonl"), before);
}

TEST_F(Convert, AScenarioNeedsAPlaceForItsFiles) {
    const Ended result = csx({"convert", log(threeLosses()), "--to", "scenario", "-o", "/dev/null"});
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(contains(result.err, "/dev/null is no regular file, and a scenario has files next to it"))
        << result.err;
}

TEST_F(Convert, ASignalEndsItWhileAPipeIsFull) {
    const std::string pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    Csx program({"convert", log(manyValues()), "--to", "csv", "-o", pipe});
    const int reader = open(pipe.c_str(), O_RDONLY | O_CLOEXEC);
    char first = 0;
    EXPECT_EQ(read(reader, &first, 1), 1);
    EXPECT_EQ(first, 't');
    program.expectEndAfter(SIGINT, -1);
    close(reader);
}

TEST_F(Convert, ARecordingMayNotBeAPipe) {
    const std::string pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    const Ended result = csx({"convert", pipe, "--to", "csv"});
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err, "csx: " + pipe + ": no regular file, and a recording is read more than once\n");
}

TEST_F(Convert, AClosedPipeEndsIt) {
    Csx program({"convert", log(manyValues()), "--to", "csv"});
    program.closeOutput();
    EXPECT_EQ(program.exitCode(), -1);
    EXPECT_EQ(program.errText(), "");
}

TEST_F(Convert, InvalidCommandLinesAreRefused) {
    const std::string file = log(threeLosses());
    const auto refused = [](const Arguments& arguments, const std::string& why) {
        const Ended result = csx(arguments);
        EXPECT_GE(result.code, 100) << why;
        EXPECT_TRUE(contains(result.err, why)) << result.err;
    };
    refused({"convert", file}, "--to is required");
    refused({"convert", file, "--to", "xml"}, "--to");
    refused({"convert", file, "--to", "scenario"}, "a scenario needs -o");
    refused({"plot", file, "a"}, "--file is required");
    refused({"plot", file, "-o", "x.svg"}, "NAME is required");
    refused({"plot", file, "a", "-o", "x.gif"}, "neither .svg nor .png: x.gif");
    refused({"stats"}, "LOG is required");
}

}  // namespace
}  // namespace com_tesk::recording_test
