#include "engine/FrameChannel.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "engine/DeferringMutex.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Hex.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;

/// Returns the members that the test sets, and records its notifications.
class RecordingOwner : public FrameChannel::Owner {
  public:
    bool mayThreadSend = true;
    std::uint32_t connection = 7;
    std::vector<std::string> log;

    bool maySend() const override { return mayThreadSend; }
    std::uint32_t connectionToWriteTo() const override { return connection; }
    void writeAbandoned(std::uint32_t abandoned) override { log.push_back("abandoned " + std::to_string(abandoned)); }
    void writeFailed(std::uint32_t failed, int error) override {
        log.push_back("failed " + std::to_string(failed) + " with " + std::to_string(error));
    }
    void readFailed(std::initializer_list<std::string_view> line) override {
        std::string text;
        for (const std::string_view piece : line) {
            text += piece;
        }
        log.push_back(text);
    }
    void bodyReceived(const RawMessage& body) override {
        log.push_back(std::to_string(body.getType()) + ": " + hexText(body));
    }
};

class FrameChannelAlone : public testing::Test {
  protected:
    static RawMessage messageOf(RawMessage::Type type, const std::string& bodyHex) {
        RawMessage message(type);
        const Bytes bytes = hex(bodyHex);
        message.insert(message.end(), bytes.begin(), bytes.end());
        return message;
    }

    RecordingOwner owner;
    FakeTransport* const transport = new FakeTransport;
    FrameChannel channel{owner, transport};
};

TEST_F(FrameChannelAlone, SendsAMessageInOneFrame) {
    EXPECT_EQ(channel.send(messageOf(RawMessage::CONTROL, "01 02")), 0U);
    EXPECT_THAT(
        transport->written(),
        ElementsAre("00 00 00 22 00 00 00 20 00 00 00 03 00 00 00 02 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
                    "FE 01 02"));
}

TEST_F(FrameChannelAlone, RefusesToSend) {
    EXPECT_EQ(channel.send(messageOf(RawMessage::INVALID, "01")), 3U);
    owner.mayThreadSend = false;
    EXPECT_EQ(channel.send(messageOf(RawMessage::DATA, "01")), 1U);
    owner.mayThreadSend = true;
    owner.connection = kNoConnection;
    EXPECT_EQ(channel.send(messageOf(RawMessage::DATA, "01")), 1U);
    EXPECT_TRUE(transport->written().empty());
}

TEST_F(FrameChannelAlone, NotifiesItsOwnerOfAFailedWrite) {
    transport->failWrites(-1, EPIPE);
    EXPECT_EQ(channel.send(messageOf(RawMessage::DATA, "01")), 2U);
    EXPECT_THAT(owner.log, ElementsAre("failed 7 with 32"));
}

TEST_F(FrameChannelAlone, PassesABodyAndTheEndOfTheStreamToItsOwner) {
    transport->queueFrame("0A 0B");
    channel.receive();
    transport->queueRead(0);
    channel.receive();
    transport->queueRead(32, "00 00 00 22 00 00 00 20" + hexText(Bytes(24)));
    transport->queueRead(0);
    channel.receive();
    EXPECT_THAT(owner.log,
                ElementsAre("1: 0A 0B", "Connection closed by server.", "EXIT: Connection closed by server."));
}

TEST_F(FrameChannelAlone, ReplacesItsTransport) {
    auto* const other = new FakeTransport;
    channel.replaceTransport(other);
    channel.replaceTransport(other);
    EXPECT_EQ(channel.send(messageOf(RawMessage::DATA, "01")), 0U);
    EXPECT_EQ(other->written().size(), 1U);
}

}  // namespace
}  // namespace com_tesk::test
