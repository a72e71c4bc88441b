// `csx replay --as client` for a host of the test.

#include <mutex>

#include "host/LoopbackHost.h"
#include "tests/replay/ReplayProcess.h"

namespace com_tesk::replay_test {
namespace {

class ClientReplay : public Replay {
  protected:
    ClientReplay() {
        HostOptions options;
        options.eventSink = [this](const HostEvent& event) { note(event); };
        host.emplace(options);
    }
    ~ClientReplay() override { host.reset(); }

    int play(const std::string& log, const Arguments& options = {}) {
        return run(Arguments{"-H", "127.0.0.1:" + std::to_string(host->port()), "replay", log, "--as", "client"} +
                   options);
    }

    /// Returns the events of the client at the host: "+" for a connection, "-" for its end, and the values of an output.
    std::string seen() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return events;
    }

    /// From now on `seen` has the values of this output.
    void watch(const std::string& name) {
        const std::lock_guard<std::mutex> lock(mutex);
        output = name;
    }

    std::optional<LoopbackHost> host;

  private:
    void note(const HostEvent& event) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (event.kind == HostEvent::Kind::CONNECTED) {
            events += "+ ";
        } else if (event.kind == HostEvent::Kind::LEFT) {
            events += "- ";
        } else if (event.kind == HostEvent::Kind::PUBLISHED && event.name == output) {
            events += event.value->text() + ' ';
        }
    }

    mutable std::mutex mutex;
    std::string output = "position";
    std::string events;
};

TEST_F(ClientReplay, PublishesWhatWasRecordedOnItsConnections) {
    EXPECT_EQ(play(dataFile("three-losses.jsonl")), 0) << err();
    ASSERT_TRUE(host->waitForClients(0, 20s));
    EXPECT_EQ(seen(), "+ 0 2 4 6 8 10 12 12 14 -2 - + -2 16 - ") << "the recorded client has closed one itself";
    EXPECT_EQ(host->subscriberCount("command"), 0U);
}

TEST_F(ClientReplay, BeginsWithTheValuesBeforeTheStart) {
    EXPECT_EQ(play(dataFile("three-losses.jsonl"), {"--start", "650ms", "--for", "200ms", "--rate", "10"}), 0) << err();
    ASSERT_TRUE(host->waitForClients(0, 20s));
    EXPECT_EQ(seen(), "+ 6 8 - ");
}

TEST_F(ClientReplay, RenamesAndSelects) {
    watch("p2");
    EXPECT_EQ(play(dataFile("three-losses.jsonl"),
                   {"--only", "position", "--rename", "position=p2", "--for", "500ms", "--rate", "10"}),
              0)
        << err();
    ASSERT_TRUE(host->waitForClients(0, 20s));
    EXPECT_EQ(seen(), "+ 0 2 4 - ");
    EXPECT_FALSE(host->value("sector").has_value());
}

TEST_F(ClientReplay, WithoutAHostItEndsWithTwo) {
    host->stop();
    EXPECT_EQ(play(dataFile("panel.jsonl"), {"--patience", "300ms"}), 2);
    EXPECT_TRUE(contains(err(), "no host: not reached within 300 ms")) << err();
}

TEST_F(ClientReplay, ValuesThatCannotLeaveAreCounted) {
    const std::string log = directory.write(
        "log.jsonl", kHeader + kRegistered + publication("0.1", R"(["B",2.0],["B",3,"integer"],["nowhere",1.0])"));
    watch("B");
    EXPECT_EQ(play(log), 0) << err();
    ASSERT_TRUE(host->waitForClients(0, 20s));
    EXPECT_EQ(seen(), "+ 2 - ");
    EXPECT_TRUE(contains(err(), "2 values or registrations were left out")) << err();
}

}  // namespace
}  // namespace com_tesk::replay_test
