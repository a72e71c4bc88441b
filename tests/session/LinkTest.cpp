// The link, and every cause for which a connection or an attempt fails.

#include <netdb.h>
#include <sys/resource.h>

#include <cerrno>
#include <string>

#include "tests/session/FailingReceive.h"
#include "tests/session/NamedHosts.h"
#include "tests/session/SessionFixtures.h"
#include "tests/support/BlackHole.h"

namespace com_tesk::session_test {
namespace {

class Links : public SessionTest {
  protected:
    /// Starts a session that records its events.
    Session& startWith(const Session::Options& sessionOptions, const std::string& output = "") {
        session = std::make_unique<Session>(sessionOptions);
        if (!output.empty()) {
            session->output<float>(output);
        }
        session->onLink([this](const LinkEvent& event) {
            events.push_back(event);
            EXPECT_FALSE(event.text.empty());
            EXPECT_EQ(event.text.find('\n'), std::string::npos) << event.text;
        });
        session->start();
        return *session;
    }

    /// Returns the first event of a failure; one with `Cause::NONE` when there is none before the bound.
    LinkEvent firstFailure() {
        const auto isFailure = [](const LinkEvent& event) {
            return event.cause != Cause::NONE && event.cause != Cause::STOPPED_BY_US;
        };
        const auto found = [&] { return std::find_if(events.begin(), events.end(), isFailure); };
        dispatchUntil(*session, [&] { return found() != events.end(); });
        return found() != events.end() ? *found() : LinkEvent();
    }

    /// Returns the states and causes of all events: "connecting, connecting refused".
    std::string story() const {
        std::string text;
        for (const LinkEvent& event : events) {
            text += (text.empty() ? "" : ", ") + std::string(toString(event.link)) +
                    (event.cause == Cause::NONE ? "" : std::string(" ") + toString(event.cause));
        }
        return text;
    }

    ScriptedHost host;
    std::vector<LinkEvent> events;
    std::unique_ptr<Session> session;
};

TEST_F(Links, EventsOfAGoodConnection) {
    LoopbackHost good(record.options());
    startWith(optionsFor(good.port()), "ALT");
    ASSERT_TRUE(dispatchUntil(*session, [&] { return story().find("ready") != std::string::npos; }));
    session->stop();
    session->dispatch();
    EXPECT_EQ(story(), "connecting, connected, answered, ready, stopped stopped by us");
    EXPECT_NE(events[2].text.find("csclient loopback host"), std::string::npos);
    EXPECT_NE(events[0].text.find("127.0.0.1:" + std::to_string(good.port())), std::string::npos);
    EXPECT_EQ(session->health().lastCause, Cause::NONE);
}

TEST_F(Links, RefusedIsReportedOnceForManyAttempts) {
    options.retry = 1ms;
    startWith(optionsFor(test::refusingPort()));
    const LinkEvent failure = firstFailure();
    EXPECT_EQ(failure.cause, Cause::REFUSED);
    EXPECT_EQ(failure.error, ECONNREFUSED);
    EXPECT_EQ(failure.link, Link::CONNECTING);
    ASSERT_TRUE(waitUntil([&] { return session->health().failedAttempts >= 20; }));
    session->dispatch();
    EXPECT_EQ(story(), "connecting, connecting refused");
    EXPECT_EQ(logged(Session::Level::WARNING, "no program listens"), 1U);
    EXPECT_EQ(session->health().lastCause, Cause::REFUSED);
    EXPECT_EQ(session->health().lastError, ECONNREFUSED);
    EXPECT_EQ(session->health().connects, 0U);
    EXPECT_EQ(session->health().losses, 0U);
}

TEST_F(Links, EachChangeOfTheCauseIsReported) {
    options.retry = 1ms;
    host.stopListening();
    startWith(optionsFor(host.port()));
    EXPECT_EQ(firstFailure().cause, Cause::REFUSED);
    host.listenAgain();
    {
        const auto peer = host.accept();
        readRequest(*peer);
        host.stopListening();
    }
    ASSERT_TRUE(dispatchUntil(*session, [&] { return events.size() == 5; }));
    EXPECT_EQ(story(), "connecting, connecting refused, connected, connecting closed, connecting refused");
}

TEST_F(Links, UnknownNameIsReportedAndKnownOneIsResolved) {
    options.host = kUnknownName;
    startWith(optionsFor(host.port()));
    const LinkEvent failure = firstFailure();
    EXPECT_EQ(failure.cause, Cause::NAME_NOT_FOUND);
    EXPECT_EQ(failure.error, EAI_NONAME);
    EXPECT_NE(failure.text.find(kUnknownName), std::string::npos);
    options.host = kLoopbackName;
    LoopbackHost good(record.options());
    EXPECT_TRUE(startWith(optionsFor(good.port())).waitUntil(Link::READY, kWaitBound));
}

TEST_F(Links, PeerThatClosesAtOnceIsClosed) {
    options.retry = 1ms;
    startWith(optionsFor(host.port()));
    for (int i = 0; i < 5; ++i) {
        const auto peer = host.accept();
        ASSERT_NE(peer, nullptr);
        readRequest(*peer);
    }
    EXPECT_EQ(firstFailure().cause, Cause::CLOSED);
    ASSERT_TRUE(waitUntil([&] { return session->health().losses == 5; }));
    EXPECT_EQ(session->health().failedAttempts, 0U);
    EXPECT_EQ(logged(Session::Level::WARNING, ": connected, and no answer: closed by the host"), 1U)
        << "not for every attempt";
}

TEST_F(Links, ResetIsReset) {
    startWith(optionsFor(host.port()));
    const auto peer = acceptAndAnswer(host, 1);
    ASSERT_TRUE(session->waitUntil(Link::ANSWERED, kWaitBound));
    peer->reset();
    const LinkEvent failure = firstFailure();
    EXPECT_EQ(failure.cause, Cause::RESET);
    EXPECT_EQ(failure.error, ECONNRESET);
}

TEST_F(Links, HostWhoseSystemNoLongerAnswersIsGone) {
    options.retry = 1h;  // No session connects a second time.
    for (const int error : {ETIMEDOUT, EHOSTUNREACH, ENETUNREACH, ENETDOWN}) {
        events.clear();
        startWith(optionsFor(host.port()));
        const auto peer = acceptAndAnswer(host, 1);
        ASSERT_TRUE(session->waitUntil(Link::ANSWERED, kWaitBound));
        const FailingReceive failing(error);
        // A frame completes the receive that waits already.
        peer->send(test::hexFrame(test::update(1, {test::updated(1, 1, "00 00 00 01")})));
        const LinkEvent failure = firstFailure();
        EXPECT_EQ(failure.cause, Cause::GONE) << error;
        EXPECT_EQ(failure.error, error);
        session->stop();
    }
}

TEST_F(Links, HostThatStopsInAFrameIsSilent) {
    options.bounds.silenceInFrame = 100ms;
    startWith(optionsFor(host.port()));
    const auto peer = acceptAndAnswer(host, 1);
    ASSERT_TRUE(session->waitUntil(Link::ANSWERED, kWaitBound));
    const auto whole = test::hex(test::hexFrame(test::update(1, {test::updated(1, 1, "00 00 00 01")})));
    peer->send(test::Bytes(whole.begin(), whole.begin() + 40));
    EXPECT_EQ(firstFailure().cause, Cause::SILENT);
}

TEST_F(Links, OtherBytesAreNotAHost) {
    const std::string http = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n";
    const std::string tooLong = "7F FF FF FF 00 00 00 20 " + test::hexField("", 24);
    const std::string headerOnly = "00 00 00 20 00 00 00 20 " + test::hexField("", 24);
    for (const test::Bytes& bytes :
         {test::Bytes(http.begin(), http.end()), test::hex(tooLong), test::hex(headerOnly)}) {
        events.clear();
        startWith(optionsFor(host.port()));
        const auto peer = host.accept();
        peer->send(bytes);
        EXPECT_EQ(firstFailure().cause, Cause::NOT_A_HOST) << test::hexText(bytes);
        EXPECT_EQ(session->health().framesIn, 0U);
        session->stop();
    }
}

TEST_F(Links, PeerWithoutAnAnswerIsReportedOnceAndKept) {
    options.answerTimeout = 50ms;
    const auto took = timeOf([&] {
        startWith(optionsFor(host.port()));
        EXPECT_EQ(firstFailure().cause, Cause::NO_ANSWER);
    });
    const auto peer = host.accept();
    EXPECT_LT(took, busy(100ms));
    EXPECT_EQ(events.back().link, Link::CONNECTED);
    EXPECT_FALSE(dispatchUntil(
        *session, [&] { return events.size() > 3; }, 150ms));
    EXPECT_EQ(story(), "connecting, connected, connected no answer");
    EXPECT_EQ(session->link(), Link::CONNECTED);
    answer(*peer, readRequest(*peer));
    EXPECT_TRUE(dispatchUntil(*session, [&] { return session->link() == Link::READY && events.size() == 4; }));
}

TEST_F(Links, HeartbeatGivesAHungHostUp) {
    options.heartbeat = 20ms;
    const auto took = timeOf([&] {
        startWith(optionsFor(host.port()));
        EXPECT_EQ(firstFailure().cause, Cause::NO_ANSWER);
    });
    const auto peer = host.accept();
    EXPECT_GE(took, 40ms);
    EXPECT_LT(took, busy(100ms));
    EXPECT_EQ(session->health().lastCause, Cause::NO_ANSWER);
    int unanswered = 0;
    while (readRequest(*peer).code == Request::VERSION) {
        ++unanswered;
    }
    EXPECT_EQ(unanswered, 3) << "and then the connection ends";
}

TEST_F(Links, HeartbeatKeepsAHostThatAnswers) {
    options.heartbeat = busy(40ms);
    startWith(optionsFor(host.port()));
    const auto peer = host.accept();
    for (int i = 0; i < 6; ++i) {
        const Request request = readRequest(*peer);
        ASSERT_EQ(request.code, Request::VERSION) << "the connection stays";
        answer(*peer, request);
    }
    EXPECT_EQ(session->health().losses, 0U);
    EXPECT_EQ(session->link(), Link::READY);
}

TEST_F(Links, HeartbeatGivesUpAHostThatDoesNotRead) {
    options.heartbeat = busy(100ms);  // The host reads 300 requests first.
    startWith(optionsFor(host.port()));
    std::vector<Output<float>> outputs;
    for (int i = 0; i < 300; ++i) {
        outputs.push_back(session->output<float>(std::to_string(i), Delivery::EVERY));
    }
    const auto peer = acceptAndAnswer(host, 1);
    while (!session->waitConfirmed({outputs.back()}, 0ms)) {
        answer(*peer, readRequest(*peer));
    }
    EXPECT_TRUE(waitUntil([&] {
        for (const auto& output : outputs) {
            output.set(1);
        }
        session->flush();
        return session->health().lastCause != Cause::NONE;
    }));
    EXPECT_EQ(session->health().lastCause, Cause::NO_ANSWER);
}

TEST_F(Links, AddressThatDoesNotAnswerIsUnreachable) {
    const test::BlackHole nothing;
    options.bounds.connectTimeout = 100ms;
    startWith(optionsFor(nothing.port()));
    const LinkEvent failure = firstFailure();
    EXPECT_EQ(failure.cause, Cause::UNREACHABLE);
    EXPECT_EQ(failure.error, ETIMEDOUT);
    EXPECT_EQ(failure.link, Link::CONNECTING);
}

TEST_F(Links, BroadcastAddressIsUnreachable) {
    options.host = "127.255.255.255";
    startWith(optionsFor(host.port()));
    const LinkEvent failure = firstFailure();
    EXPECT_EQ(failure.cause, Cause::UNREACHABLE);
    EXPECT_EQ(failure.error, ENETUNREACH);
}

TEST_F(Links, SystemWithoutSocketsHasFailed) {
    if (test::isEmulated() || (test::kUnderSanitizer && !test::kUnderThreadSanitizer)) {
        GTEST_SKIP() << "the emulator, or the checks of the sanitizer, need descriptors themselves";
    }
    session = std::make_unique<Session>(optionsFor(host.port()));
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = limit;
    none.rlim_cur = 3;  // All in use. Waiting for up to three descriptors stays possible.
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    session->start();
    const bool hasFailed = waitUntil([&] { return session->health().failedAttempts > 0; });
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_TRUE(hasFailed);
    EXPECT_EQ(session->health().lastCause, Cause::FAILED);
    EXPECT_EQ(session->health().lastError, EMFILE);
    EXPECT_NE(host.accept(), nullptr) << "it connects as soon as there are sockets";
}

TEST(LinkNames, AreTheEnumeratorsInLowerCase) {
    std::string names;
    for (int link = 0; link <= static_cast<int>(Link::READY); ++link) {
        names += toString(static_cast<Link>(link)) + std::string(", ");
    }
    EXPECT_EQ(names, "stopped, connecting, connected, answered, ready, ");
    names.clear();
    for (int cause = 0; cause <= static_cast<int>(Cause::FAILED); ++cause) {
        names += toString(static_cast<Cause>(cause)) + std::string(", ");
    }
    EXPECT_EQ(
        names,
        "none, stopped by us, refused, unreachable, name not found, closed, reset, silent, not a host, no answer, "
        "gone, failed, ");
    for (const auto& [quality, name] :
         {std::pair(Quality::NEVER, "never"), std::pair(Quality::LOST, "lost"), std::pair(Quality::STALE, "stale"),
          std::pair(Quality::UNCONFIRMED, "unconfirmed"), std::pair(Quality::GOOD, "good")}) {
        EXPECT_STREQ(toString(quality), name);
    }
}

}  // namespace
}  // namespace com_tesk::session_test
