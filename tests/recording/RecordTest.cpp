// csx record as a process.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>

#include "tests/csx/CsxProcess.h"
#include "tests/recording/TemporaryDirectory.h"
#include "tools/recording/Recording.h"

namespace com_tesk::recording_test {
namespace {

using namespace csx_test;

class RecordBy : public ::testing::Test {
  protected:
    const std::string& log() const { return file; }

    static unsigned int portOf(Csx& csx) {
        EXPECT_TRUE(csx.waitForErr("recording to")) << csx.errText();
        const std::string text = csx.errText();
        const std::string begin = "proxy at 127.0.0.1:";
        const std::size_t at = text.find(begin);
        return at == std::string::npos ? 0 : static_cast<unsigned int>(std::stoul(text.substr(at + begin.size())));
    }

    Arguments proxyTo(unsigned int port, const Arguments& more = {}) const {
        Arguments all{"record",   "-w",          file,   "--proxy",
                      "--listen", "127.0.0.1:0", "--to", "127.0.0.1:" + std::to_string(port)};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    /// Returns what a parser that is not ours reads: the values of a name, and the type of the last line.
    std::string readByPython(const std::string& name) const {
        ChildProcess::Setup setup;
        setup.path = "/bin/sh";
        const std::string result = directory.path("result");
        const std::string command =
            "python3 " + std::string(READER_PATH) + " '" + file + "' '" + name + "' > '" + result + "' 2>&1";
        EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c,concurrency-mt-unsafe): a fixed command
        std::string text = directory.read("result");
        return text.empty() ? text : text.substr(0, text.size() - 1);
    }

    /// True as soon as the recording contains a text.
    bool hasRecorded(const std::string& text) const {
        return test::waitUntil([&] { return contains(directory.read("log.jsonl"), text); });
    }

    TemporaryDirectory directory;
    const std::string file = directory.path("log.jsonl");
};

TEST_F(RecordBy, AnIndependentParserReadsWhatPassedTheProxy) {
    HostRecord record;
    LoopbackHost host(record.options());
    Csx csx(proxyTo(host.port()));
    const unsigned int port = portOf(csx);
    EXPECT_EQ(run(port, {"put", "level=0.1", "count=i:-3", "--echo", "10s"}).code, 0);
    EXPECT_EQ(run(port, {"put", "level=nan", "count=i:2147483647", "--echo", "10s"}).code, 0);
    csx.expectEndAfter(SIGINT, 0);
    EXPECT_EQ(readByPython("level"), "0.1 0.1 'nan' 'nan' end");
    EXPECT_EQ(readByPython("count"), "i:-3 i:-3 i:2147483647 i:2147483647 end");
}

TEST_F(RecordBy, TheHostHasItsUsualPortUnlessItIsGiven) {
    Csx csx({"record", "-w", log(), "--proxy", "--listen", "127.0.0.1:0", "--to", "127.0.0.2"});
    EXPECT_TRUE(csx.waitForErr(" for 127.0.0.2:55580, recording to")) << csx.errText();
    csx.expectEndAfter(SIGINT, 0);
}

TEST_F(RecordBy, SubscribedValuesAndLossesAreRecorded) {
    HostRecord record;
    LoopbackHost host(record.options());
    host.setValue("level", HostValue::real(1.5F));
    Csx csx(host.port(), {"record", "-w", log(), "level"});
    EXPECT_TRUE(hasRecorded(
        R"("type":"inputs-confirmed","connection":1,"parameters":[{"name":"level","type":"float","value":1.5}])"));
    host.setValue("level", HostValue::real(2.5F));
    EXPECT_TRUE(hasRecorded(R"("type":"update","connection":1,"values":[["level",2.5]])"));
    host.dropClients(LoopbackHost::DropMode::RESET);
    EXPECT_TRUE(hasRecorded(R"("type":"lost","connection":1,"side":"host")"));
    EXPECT_TRUE(hasRecorded(
        R"("type":"inputs-confirmed","connection":2,"parameters":[{"name":"level","type":"float","value":2.5}])"));
    csx.expectEndAfter(SIGTERM, 0);
    EXPECT_EQ(readByPython("level"), "2.5 end");
}

TEST_F(RecordBy, TheTimeEndsIt) {
    LoopbackHost host(LoopbackHost::Options{});
    const Ended result = run(host.port(), {"record", "-w", log(), "level", "--for", "300ms"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(readByPython("level"), " end");
}

TEST_F(RecordBy, WithoutAHostNothingIsRecorded) {
    const Ended result = run(test::refusingPort(), {"record", "-w", log(), "level", "--timeout", "200ms"});
    EXPECT_EQ(result.code, 2) << result.err;
    EXPECT_FALSE(directory.has("log.jsonl"));
}

TEST_F(RecordBy, KillLosesAtMostWhatTheOptionSays) {
    HostRecord record;
    LoopbackHost host(record.options());
    Csx csx(proxyTo(host.port(), {"--sync", "100ms"}));
    const unsigned int port = portOf(csx);
    EXPECT_EQ(run(port, {"put", "level=1.5", "--echo", "10s"}).code, 0);
    EXPECT_TRUE(hasRecorded(R"(["level",1.5])")) << "it reaches the file without an end";
    csx.signal(SIGKILL);
    EXPECT_EQ(csx.exitCode(), -1);
    recording::Recording recording(log());
    bool isFound = false;
    while (const auto entry = recording.next()) {
        isFound = isFound || std::holds_alternative<recording::Publication>(entry->content);
    }
    EXPECT_TRUE(isFound);
    EXPECT_EQ(recording.flaws(), std::vector<std::string>{});
}

TEST_F(RecordBy, AFullDiskIsReportedAndTheProxyGoesOn) {
    HostRecord record;
    LoopbackHost host(record.options());
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{500, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    Csx csx(proxyTo(host.port()));
    setrlimit(RLIMIT_FSIZE, &limit);
    const unsigned int port = portOf(csx);
    EXPECT_EQ(run(port, {"put", "level=1.5", "--echo", "10s"}).code, 0);
    EXPECT_TRUE(csx.waitForErr("csx: " + log() + ": File too large; lines are dropped until writing works again\n"));
    EXPECT_EQ(run(port, {"put", "level=2.5", "--echo", "10s"}).code, 0);
    csx.signal(SIGINT);
    EXPECT_EQ(csx.exitCode(), 0);
    EXPECT_TRUE(contains(csx.errText(), "lines were lost")) << csx.errText();
    EXPECT_EQ(recording::Recording(log()).header().mode, "proxy");
}

TEST_F(RecordBy, InvalidCommandLinesAreRefused) {
    const auto refused = [&](const Arguments& arguments, const std::string& why) {
        Csx csx(arguments);
        const Ended result = ended(csx);
        EXPECT_GE(result.code, 100) << why;
        EXPECT_TRUE(contains(result.err, why)) << result.err;
    };
    refused({"record", "level"}, "--write is required");
    refused({"record", "-w", log()}, "either names or --proxy");
    refused({"record", "-w", log(), "--proxy", "level"}, "either names or --proxy");
    refused({"record", "-w", log(), "level", "--listen", ":1"}, "--listen requires --proxy");
    refused({"record", "-w", log(), "level", "--raw"}, "--raw requires --proxy");
    refused({"record", "-w", log(), "level", "--keep", "0"}, "--keep");
    for (const char* rotation : {"", "64", "64MB", "0K", "1m5", "10ms", "-1M", "1000001K"}) {
        refused({"record", "-w", log(), "level", std::string("--rotate=") + rotation}, "--rotate");
    }
    for (const char* place : {"", "55581", ":", ":65536", ":x", "a:-1"}) {
        refused({"record", "-w", log(), "--proxy", std::string("--listen=") + place}, "--listen");
    }
    directory.write("log.jsonl", "mine");
    refused({"record", "-w", log(), "level"}, log() + " exists; a recording never overwrites a file");
    EXPECT_EQ(directory.read("log.jsonl"), "mine");
}

TEST_F(RecordBy, AnAddressInUseLeavesNoFile) {
    LoopbackHost host(LoopbackHost::Options{});
    Csx csx({"record", "-w", log(), "--proxy", "--listen", "127.0.0.1:" + std::to_string(host.port())});
    const Ended result = ended(csx);
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(contains(result.err, "Address already in use")) << result.err;
    EXPECT_FALSE(directory.has("log.jsonl"));
}

}  // namespace
}  // namespace com_tesk::recording_test
