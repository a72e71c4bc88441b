#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

HostOptions described() {
    HostOptions options;
    options.versionText = "Host \"2.1\", new";
    options.protocolVersion = 7;
    options.assignId = static_cast<std::uint16_t>(5);
    return options;
}

TEST(Info, HasTheFieldsOfTheHostAndTheConnection) {
    LoopbackHost host(described());
    const Ended info = run(host.port(), {"-o", "json", "info"});
    EXPECT_EQ(info.code, 0) << info.err;
    const auto objects = objectsOf(info.out);
    ASSERT_EQ(objects.size(), 1U);
    const Json& fields = objects[0];
    EXPECT_EQ(fields["host"], "127.0.0.1");
    EXPECT_EQ(fields["port"], host.port());
    EXPECT_EQ(fields["version"], "Host \"2.1\", new");
    EXPECT_EQ(fields["protocol"], 7);
    EXPECT_EQ(fields["simulator_id"], 5);
    EXPECT_TRUE(fields["transport"].is_string());
    EXPECT_GT(fields["round_trip_ms"].get<double>(), 0.0);
    EXPECT_GE(fields["answer_ms"].get<double>(), fields["connect_ms"].get<double>());
    EXPECT_GE(fields["connect_ms"].get<double>(), 0.0);
    EXPECT_EQ(fields.size(), 9U);
}

TEST(Info, HasALineForEachField) {
    LoopbackHost host(described());
    const Ended info = run(host.port(), {"info"});
    const auto lines = linesOf(info.out);
    ASSERT_EQ(lines.size(), 9U);
    EXPECT_EQ(lines[1], "port: " + std::to_string(host.port()));
    EXPECT_EQ(lines[2], "version: Host \"2.1\", new");
    EXPECT_EQ(lines[3], "protocol: 7");
    EXPECT_EQ(lines[4], "simulator_id: 5");
}

TEST(Info, HasARowOfCsv) {
    LoopbackHost host(described());
    const auto lines = linesOf(run(host.port(), {"-o", "csv", "info"}).out);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "host,port,version,protocol,simulator_id,transport,connect_ms,answer_ms,round_trip_ms\r");
    EXPECT_TRUE(contains(lines[1], ",\"Host \"\"2.1\"\", new\",7,5,")) << lines[1];
}

TEST(Info, AVersionThatIsNotPrintableDoesNotReachTheTerminal) {
    HostOptions options = described();
    options.versionText = "\x1B[2J";
    LoopbackHost host(options);
    EXPECT_TRUE(contains(run(host.port(), {"info"}).out, "version: \\x1b[2J\n"));
}

TEST(Info, WithoutAHostItEndsWithTwo) {
    const Ended info = run(test::refusingPort(), {"info"});
    EXPECT_EQ(info.code, 2);
    EXPECT_EQ(info.out, "");
    EXPECT_TRUE(contains(info.err, "csx: no host: ")) << info.err;
}

}  // namespace
}  // namespace com_tesk::csx_test
