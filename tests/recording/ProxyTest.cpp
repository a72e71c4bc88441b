// The proxy: every byte passes unchanged, and ends of connections stay what they are.

#include <gtest/gtest.h>

#include "tests/recording/ProxyFixture.h"
#include "tests/support/HostMessages.h"

namespace com_tesk::recording_test {
namespace {

using test::hex;
using test::hexField;
using test::hexWord;

/// A frame with the header that a client writes.
Bytes frameOf(const std::string& bodyHex) {
    return hex(test::hexFrame(bodyHex));
}

std::string requestOf(const std::string& code, const std::string& restHex) {
    const auto rest = static_cast<unsigned int>(hex(restHex).size());
    return "04 02 7F FF " + hexWord(12 + rest) + " 00 7F 00 " + code + ' ' + restHex;
}

const std::string kAskVersion = requestOf("06", "00 05 00 00 00 00 00 00");
const std::string kConnected = R"("connected","connection":1,"client":"127.0.0.1:"})"
                               "\n";
const std::string kAskedVersion = R"("version-request","connection":1,"simulator-id":5})"
                                  "\n";
const std::string kEnd = R"("end"})"
                         "\n";

std::string lostLine(const std::string& side, const std::string& why) {
    return R"("lost","connection":1,"side":")" + side + R"(","why":")" + why + "\"}\n";
}

TEST_F(ProxyOf, ASmallSessionIsRecorded) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    const auto pass = [&](Peer& from, Peer& to, const std::string& body) {
        from.send(frameOf(body));
        EXPECT_EQ(to.receiveBody(), test::hexText(hex(body)));
    };
    pass(*client, *peer, kAskVersion);
    pass(*peer, *client, test::versionResponse(0x00050000, "host 1"));
    pass(*client, *peer, requestOf("02", "00 05 00 00 00 00 00 01 00 00 00 00 00 00 00 01 " + hexField("count")));
    pass(*peer, *client, test::outputsConfirmed({{9, "count"}}));
    pass(*client, *peer, requestOf("03", "00 05 00 00 00 00 00 00 00 00 00 01 00 00 00 09 00 00 00 01 00 00 00 07"));
    client->close();
    EXPECT_TRUE(endsInOrder(*peer));
    peer->close();
    EXPECT_TRUE(hasRecorded(R"("type":"lost")"));
    EXPECT_EQ(recorded(),
              kConnected + kAskedVersion +
                  R"("version","connection":1,"text":"host 1","protocol":9,"simulator-id":5,"status":1})"
                  "\n"
                  R"("register-outputs","connection":1,"parameters":[{"name":"count","type":"integer"}]})"
                  "\n"
                  R"("outputs-confirmed","connection":1,"parameters":[{"name":"count","type":"integer","id":9}]})"
                  "\n"
                  R"("publish","connection":1,"values":[["count",7,"integer"]]})"
                  "\n" +
                  lostLine("client", "closed") + kEnd);
}

TEST_F(ProxyOf, EveryCutOfAFramePasses) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    const Bytes frame = frameOf(kAskVersion);
    for (std::size_t size = 1; size < frame.size(); ++size) {
        const auto middle = frame.begin() + static_cast<std::ptrdiff_t>(size);
        const Bytes first(frame.begin(), middle);
        client->send(first);
        ASSERT_EQ(peer->receive(first.size()), first) << "passed on before the frame is complete";
        const Bytes second(middle, frame.end());
        client->send(second);
        ASSERT_EQ(peer->receive(second.size()), second);
    }
    std::string expected = kConnected;
    for (std::size_t size = 1; size < frame.size(); ++size) {
        expected += kAskedVersion;
    }
    EXPECT_EQ(recorded(), expected + kEnd);
}

TEST_F(ProxyOf, LargeAmountsPassInBothDirectionsAtOnce) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    const Bytes up = pattern(4'000'000, 1);
    const Bytes down = pattern(3'000'000, 2);
    Bytes arrivedUp;
    Bytes arrivedDown;
    std::thread senderUp([&] { client->send(up); });
    std::thread senderDown([&] { peer->send(down); });
    std::thread receiver([&] { arrivedDown = client->receive(down.size()); });
    arrivedUp = peer->receive(up.size());
    senderUp.join();
    senderDown.join();
    receiver.join();
    EXPECT_TRUE(arrivedUp == up);
    EXPECT_TRUE(arrivedDown == down);
}

TEST_F(ProxyOf, BytesWaitUntilTheSlowSideReads) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    const Bytes bytes = pattern(12'000'000, 3);  // More than the buffers of all sockets.
    std::thread sender([&] { client->send(bytes); });
    peer->send(Bytes{7});
    EXPECT_EQ(client->receive(1), Bytes{7}) << "the other direction is not blocked";
    EXPECT_TRUE(peer->receive(bytes.size()) == bytes);
    sender.join();
}

TEST_F(ProxyOf, ManyClientsHaveTheirOwnConnections) {
    begin();
    constexpr unsigned int kClients = 40;
    std::vector<std::unique_ptr<Peer>> clients;
    std::vector<std::unique_ptr<Peer>> peers;
    for (unsigned int i = 0; i < kClients; ++i) {
        clients.push_back(connect());
        peers.push_back(host.accept());
        ASSERT_NE(peers.back(), nullptr);
    }
    for (unsigned int i = 0; i < kClients; ++i) {
        clients[i]->send(pattern(1000, i));
        peers[i]->send(pattern(1000, 1000 + i));
    }
    for (unsigned int i = kClients; i-- > 0;) {
        EXPECT_TRUE(peers[i]->receive(1000) == pattern(1000, i));
        EXPECT_TRUE(clients[i]->receive(1000) == pattern(1000, 1000 + i));
    }
}

TEST_F(ProxyOf, AHalfCloseStaysAHalfClose) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    client->send(Bytes{1});
    client->endSending();
    EXPECT_EQ(peer->receive(1), Bytes{1});
    EXPECT_TRUE(endsInOrder(*peer));
    peer->send(Bytes{2});
    EXPECT_EQ(client->receive(1), Bytes{2});
    peer->close();
    EXPECT_TRUE(endsInOrder(*client));
    EXPECT_EQ(recorded(), kConnected + lostLine("client", "closed") + kEnd);
}

TEST_F(ProxyOf, AResetOfEitherSideStaysAReset) {
    begin();
    auto client = connect();
    auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    peer->reset();
    EXPECT_FALSE(endsInOrder(*client));
    auto second = connect();
    peer = host.accept();
    ASSERT_NE(peer, nullptr);
    second->reset();
    EXPECT_FALSE(endsInOrder(*peer));
    std::string lines = recorded();
    EXPECT_NE(lines.find(lostLine("host", "Connection reset by peer")), std::string::npos) << lines;
    EXPECT_NE(lines.find(R"("lost","connection":2,"side":"client","why":"Connection reset by peer"})"),
              std::string::npos)
        << lines;
}

TEST_F(ProxyOf, BytesBeforeAResetPass) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    client->send(frameOf(kAskVersion));
    EXPECT_EQ(peer->receiveBody(), test::hexText(hex(kAskVersion)));
    client->reset();
    EXPECT_FALSE(endsInOrder(*peer));
    EXPECT_EQ(recorded(), kConnected + kAskedVersion + lostLine("client", "Connection reset by peer") + kEnd);
}

TEST_F(ProxyOf, ARefusingHostResetsTheClient) {
    host.stopListening();
    begin();
    const auto client = connect();
    EXPECT_TRUE(client->waitForEnd());
    EXPECT_EQ(recorded(), kConnected + lostLine("host", "Connection refused") + kEnd);
}

TEST_F(ProxyOf, BytesThatAreNoFramesPassAndAreNoted) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    for (int i = 0; i < 3; ++i) {
        client->send(pattern(500, 9));
        EXPECT_TRUE(peer->receive(500) == pattern(500, 9));
    }
    const std::string lines = recorded();
    const std::string note = R"("unreadable","connection":1,"side":"client","why":"no frames from here on: )";
    EXPECT_NE(lines.find(note), std::string::npos) << lines;
    EXPECT_EQ(lines.find(note), lines.rfind(note)) << lines;
}

TEST_F(ProxyOf, RawBytesPrecedeTheirEntries) {
    begin(true);
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    client->send(frameOf(kAskVersion));
    peer->receiveFrame();
    EXPECT_EQ(recorded(),
              kConnected +
                  R"("raw","connection":1,"side":"client","bytes":"AAAANAAAACAAAAAAAAAAAP////////////////////8)"
                  R"(EAn//AAAAFAB/AAYABQAAAAAAAA=="})"
                  "\n" +
                  kAskedVersion + kEnd);
}

TEST_F(ProxyOf, TheEndClosesAllConnections) {
    begin();
    const auto client = connect();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    end();
    EXPECT_TRUE(endsInOrder(*client));
    EXPECT_TRUE(endsInOrder(*peer));
}

}  // namespace
}  // namespace com_tesk::recording_test
