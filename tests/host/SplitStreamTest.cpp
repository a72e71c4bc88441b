#include <gtest/gtest.h>

#include "host/LoopbackHost.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

Bytes wholeSession() {
    return joined({versionRequest(), subscribeFloat("A"), registerFloat("A"), publish("00000002 00000000 3F800000"),
                   unsubscribe("00000001"), publish("00000002 00000000 40000000"), unregister("00000002"),
                   registerFloat("A")});
}

void expectAnswersOfSession(RawClient& client) {
    EXPECT_EQ(client.receiveFrame().size(), 184U);
    EXPECT_EQ(text(client.receiveFrame()),
              text(frame(joined({hex("04027FFF 00000048 007F0101 00050000 00000001"),
                                 hex("00000001 00002EE0 00002EE0 00000000 00000000"), nameField("A")}))));
    EXPECT_EQ(text(client.receiveFrame()),
              text(frame(joined({hex("04027FFF 00000044 007F0102 00050000 00000001"),
                                 hex("00000002 000004B0 00000000 00000000"), nameField("A")}))));
    EXPECT_EQ(text(client.receiveFrame()), text(update("00000001 00000000 3F800000")));
    EXPECT_EQ(text(client.receiveFrame()),
              text(frame(joined({hex("04027FFF 00000044 007F0102 00050000 00000001"),
                                 hex("00000003 000004B0 00000000 00000000"), nameField("A")}))));
}

HostOptions withZero() {
    HostOptions options;
    options.initialValues = {{"A", HostValue::real(0.0F)}};
    return options;
}

TEST(SplitStream, ASessionInOnePieceIsServedFrameByFrame) {
    LoopbackHost host(withZero());
    RawClient client(host.port());
    client.send(wholeSession());
    expectAnswersOfSession(client);
}

TEST(SplitStream, ASessionByteByByteIsServedTheSame) {
    LoopbackHost host(withZero());
    RawClient client(host.port());
    for (const std::uint8_t byte : wholeSession()) {
        ASSERT_TRUE(client.send({byte}));
    }
    expectAnswersOfSession(client);
}

TEST(SplitStream, ASessionCutInTwoAtEveryByteIsServedTheSame) {
    LoopbackHost host({});
    const Bytes session = wholeSession();
    for (std::size_t split = 1; split < session.size(); ++split) {
        SCOPED_TRACE(split);
        const auto cut = session.begin() + static_cast<std::ptrdiff_t>(split);
        host.setValue("A", HostValue::real(0.0F));
        RawClient client(host.port());
        client.send(Bytes(session.begin(), cut));
        client.send(Bytes(cut, session.end()));
        expectAnswersOfSession(client);
        ASSERT_FALSE(HasFailure());
    }
}

}  // namespace
}  // namespace com_tesk::host_test
