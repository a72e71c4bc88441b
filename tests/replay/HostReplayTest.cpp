// `csx replay --as host` for a client that the test controls byte by byte.

#include <csignal>

#include "tests/host/HostTest.h"
#include "tests/replay/ReplayProcess.h"

namespace com_tesk::replay_test {
namespace {

using host_test::Client;

class HostReplay : public Replay {
  protected:
    /// Starts the replay of a log with these entries after the registration, and returns its port.
    std::uint16_t play(const std::string& entries, const Arguments& options = {}) {
        start(Arguments{"replay", directory.write("log.jsonl", kHeader + kRegistered + entries), "--as", "host"} +
              options);
        EXPECT_TRUE(process->waitForErr("listening on 127.0.0.1:")) << err();
        const std::string text = err();
        const std::size_t colon = text.find("127.0.0.1:") + 10;
        EXPECT_TRUE(process->waitForErr("\n"));
        return static_cast<std::uint16_t>(std::stoul(err().substr(colon)));
    }

    /// Registers what was recorded. The output comes last, and the replay begins.
    static void registerAll(Client& client, const std::string& input = "A", const std::string& value = "3F800000") {
        EXPECT_EQ(client.ask(host_test::subscribe(input)),
                  host_test::inputReply("00000001", "00000000 " + value, input));
        client.ask(host_test::registerOutput("B"));
    }

    /// Returns nothing when the port refuses.
    static std::unique_ptr<Client> connectTo(std::uint16_t port) {
        try {
            return std::make_unique<Client>(port);
        } catch (const std::system_error&) {
            return nullptr;
        }
    }

    static std::string updateTo(const std::string& value) { return host_test::update("00000001 00000000 " + value); }
};

TEST_F(HostReplay, OneRecordedMessageIsOneMessage) {
    Client client(play(update("0.1", R"(["A",1.5],["A",2.0])") + update("0.2", R"(["A",3.0])")));
    registerAll(client);
    EXPECT_EQ(client.receiveFrame(), host_test::frame("04027FFF 00000030 007F0003 00050000 00000000 00000002"
                                                      "00000001 00000000 3FC00000 00000001 00000000 40000000"));
    EXPECT_EQ(client.receiveFrame(), updateTo("40400000"));
    EXPECT_EQ(process->exitCode(), 0) << err();
}

TEST_F(HostReplay, TheVersionIsTheRecordedOne) {
    Client client(play(entry("0.1", R"("version","text":"sim 7","protocol":3,"simulator-id":5,"status":1)")));
    EXPECT_EQ(client.ask(host_test::versionRequest()), host_test::versionReply("00050000", "sim 7", "00000003"));
}

TEST_F(HostReplay, PublishedValuesComeBackOnlyWhenRecorded) {
    Client client(play(update("0.5", R"(["A",2.0])")));
    client.ask(host_test::subscribe("B"));
    client.ask(host_test::registerOutput("B"));
    client.send(host_test::publish("00000002 00000000 40A00000"));
    EXPECT_EQ(client.ask(host_test::subscribe("A")), host_test::inputReply("00000003", "00000000 3F800000", "A"));
    EXPECT_EQ(client.receiveFrame(), host_test::update("00000003 00000000 40000000"));
}

TEST_F(HostReplay, ARecordedResetResetsTheConnection) {
    const std::string lost = entry("0.1", R"("lost","side":"host","why":"Connection reset by peer")");
    const std::uint16_t port = play(lost + update("60", R"(["A",2.0])"));
    Client client(port);
    registerAll(client);
    EXPECT_EQ(client.end(), Client::End::RESET);
    Client next(port);
    registerAll(next);
}

TEST_F(HostReplay, TheHostIsAwayAsLongAsRecorded) {
    const std::string refused = entry("0.5", R"("lost","side":"host","why":"Connection refused")");
    const std::string back = R"({"t":1.5,"type":"connected","connection":2,"client":"127.0.0.1:5"})"
                             "\n"
                             R"({"t":1.5,"type":"update","connection":2,"values":[["A",2.0]]})"
                             "\n";
    const std::uint16_t port = play(entry("0.1", R"("lost","side":"host","why":"closed")") +
                                    R"({"t":0.4,"type":"connected","connection":1,"client":"127.0.0.1:5"})" + "\n" +
                                    refused + back + update("60", R"(["A",3.0])"));
    Client client(port);
    registerAll(client);
    EXPECT_EQ(client.end(), Client::End::CLOSED);
    EXPECT_EQ(connectTo(port), nullptr);
    std::unique_ptr<Client> next;
    const auto limit = std::chrono::steady_clock::now() + host_test::kBound;
    while (!next && std::chrono::steady_clock::now() < limit) {
        next = connectTo(port);
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_NE(next, nullptr);
    next->ask(host_test::registerOutput("B"));
    EXPECT_NE(next->ask(host_test::subscribe("A")), "");
}

TEST_F(HostReplay, AStartUsesWhatIsKnownThen) {
    const std::string early = update("10", R"(["A",4.0])") + update("20", R"(["A",5.0])");
    Client client(play(early + update("20.2", R"(["A",6.0])"), {"--start", "20s"}));
    registerAll(client, "A", "40A00000");
    EXPECT_EQ(client.receiveFrame(), updateTo("40C00000"));
    EXPECT_EQ(process->exitCode(), 0) << err();
}

TEST_F(HostReplay, GapsAreSkipped) {
    Client client(play(update("1000", R"(["A",2.0])") + update("2000", R"(["A",3.0])"), {"--skip-gaps", "50ms"}));
    registerAll(client);
    EXPECT_EQ(client.receiveFrame(), updateTo("40000000"));
    EXPECT_EQ(client.receiveFrame(), updateTo("40400000"));
    EXPECT_EQ(process->exitCode(), 0) << err();
}

TEST_F(HostReplay, AHigherRateIsFaster) {
    Client client(play(update("100", R"(["A",2.0])"), {"--rate", "1000"}));
    registerAll(client);
    EXPECT_EQ(client.receiveFrame(), updateTo("40000000"));
    EXPECT_EQ(process->exitCode(), 0) << err();
}

TEST_F(HostReplay, NamesAreSelectedAndRenamed) {
    Client client(play(update("0.1", R"(["A",2.0],["Z",9.0])"), {"--only", "A", "--rename", "A=C"}));
    EXPECT_EQ(client.ask(host_test::subscribe("C")), host_test::inputReply("00000001", "00000000 3F800000", "C"));
    EXPECT_EQ(client.receiveFrame(), updateTo("40000000"));
}

TEST_F(HostReplay, ALoopBeginsAgainUntilASignal) {
    Client client(play(update("0.1", R"(["A",2.0])"), {"--loop"}));
    registerAll(client);
    EXPECT_EQ(client.receiveFrame(), updateTo("40000000"));
    EXPECT_EQ(client.receiveFrame(), updateTo("3F800000")) << "the value at the beginning";
    EXPECT_EQ(client.receiveFrame(), updateTo("40000000"));
    process->signal(SIGTERM);
    EXPECT_EQ(process->exitCode(), -1);
    EXPECT_TRUE(contains(err(), " entries played; lateness ")) << err();
}

TEST_F(HostReplay, LinesThatCannotBeReadAreReportedAndLeftOut) {
    const std::string broken = "{\"t\":0.1,\"type\":\n" + update("0.2", R"(["A",2.0])") +
                               update("0.1", R"(["A",7.0])") + update("0.3", R"(["A",3.0])") +
                               R"({"t":0.4,"type":"upd)";
    Client client(play(broken));
    registerAll(client);
    EXPECT_EQ(client.receiveFrame(), updateTo("40000000"));
    EXPECT_EQ(client.receiveFrame(), updateTo("40400000"));
    EXPECT_EQ(process->exitCode(), 0);
    EXPECT_TRUE(contains(err(), "log.jsonl:6: ")) << err();
    EXPECT_TRUE(contains(err(), "log.jsonl:8: earlier than the line before")) << err();
    EXPECT_TRUE(contains(err(), "log.jsonl:10: the line is torn")) << err();
}

}  // namespace
}  // namespace com_tesk::replay_test
