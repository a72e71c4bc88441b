// Which connections stand, and when none does.

#include "tools/recording_tools/Connections.h"

#include <gtest/gtest.h>

#include <vector>

namespace com_tesk::recording {
namespace {

using std::chrono::seconds;

Entry at(int second, std::uint32_t connection, decltype(Entry::content) content) {
    return {seconds(second), connection, std::move(content)};
}

TEST(ConnectionsOf, AnOutageLastsUntilTheHostAnswersAgain) {
    Connections connections;
    EXPECT_FALSE(connections.note(at(1, 1, Connected{})));
    EXPECT_FALSE(connections.note(at(2, 1, Version{})));
    EXPECT_FALSE(connections.note(at(3, 1, Lost{Side::HOST, "Connection reset by peer"})));
    ASSERT_TRUE(connections.current().has_value());
    EXPECT_FALSE(connections.note(at(4, 2, Connected{})));
    EXPECT_FALSE(connections.note(at(5, 2, Lost{Side::HOST, "Connection refused"})));
    EXPECT_FALSE(connections.note(at(6, 3, Connected{})));
    const auto outage = connections.note(at(7, 3, Confirmation{}));
    ASSERT_TRUE(outage.has_value());
    EXPECT_EQ(outage->begin, seconds(3));
    EXPECT_EQ(outage->end, seconds(7));
    EXPECT_EQ(outage->side, Side::HOST);
    EXPECT_TRUE(outage->isReset);
    EXPECT_EQ(outage->attempts, 1U);
    EXPECT_EQ(outage->lastAttempt, seconds(5));
    EXPECT_FALSE(connections.current().has_value());
    EXPECT_EQ(connections.established(), 2U);
    EXPECT_EQ(connections.unanswered(), 1U);
}

TEST(ConnectionsOf, ALossIsNoOutageWhileAnotherConnectionStands) {
    Connections connections;
    connections.note(at(1, 1, Update{}));
    connections.note(at(1, 2, Update{}));
    connections.note(at(2, 1, Lost{Side::CLIENT, "closed"}));
    EXPECT_FALSE(connections.current().has_value());
    connections.note(at(3, 2, Lost{Side::HOST, "closed"}));
    EXPECT_TRUE(connections.current().has_value());
    EXPECT_EQ(connections.lostByHost(), 1U);
    EXPECT_EQ(connections.lostByClient(), 1U);
}

TEST(ConnectionsOf, NoOutagePrecedesTheFirstConnection) {
    Connections connections;
    connections.note(at(1, 1, Lost{Side::HOST, "Connection refused"}));
    EXPECT_FALSE(connections.current().has_value());
    State state;
    state.connections.push_back({2, 7, {}, {}});
    EXPECT_FALSE(connections.note(at(2, 0, state)));
    EXPECT_EQ(connections.established(), 1U);
    EXPECT_EQ(connections.unanswered(), 1U);
}

}  // namespace
}  // namespace com_tesk::recording
