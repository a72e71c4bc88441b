// The verdicts of `csx doctor` about names.

#include "tests/csx/Doctor.h"

namespace com_tesk::csx_test {
namespace {

TEST(DoctorNames, EachIsConfirmedAndHasAValue) {
    HostOptions options;
    options.initialValues = {{"A", HostValue::real(1.5F)}, {"b c", HostValue::integer(3)}};
    LoopbackHost host(options);
    const Ended doctor = run(host.port(), {"doctor", "A", "b c"});
    EXPECT_EQ(doctor.code, 0);
    for (const char* const text : {"ok    name A: confirmed (", "ok    name \"b c\": confirmed (",
                                   "ok    value A: 1.5 (float) (", "ok    value \"b c\": 3 (int) ("}) {
        EXPECT_TRUE(contains(doctor.out, text)) << text;
    }
    EXPECT_EQ(linesOf(doctor.out).back(), "verdict: everything works");
}

TEST(DoctorNames, ZeroMayMeanThatNoProgramHasPublishedTheName) {
    LoopbackHost host(HostOptions{});
    const Ended doctor = run(host.port(), {"doctor", "A"});
    EXPECT_EQ(doctor.code, 0);
    EXPECT_TRUE(contains(doctor.out, "; a name that no program has published is 0, too (")) << doctor.out;
}

TEST(DoctorNames, NotConfirmed) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "doctor", "A", "NO"});
    const auto peer = acceptAndAnswer(host, 1);
    answerOnly(*peer, readRequest(*peer), {"A"});
    expectVerdict(csx, 3, "name NO", "the host does not confirm the name", "section 5");
}

TEST(DoctorNames, TheEchoOfBothTypesIsTheValueThatWasThere) {
    HostRecord record;
    HostOptions options = record.options();
    options.initialValues = {{"A", HostValue::real(1.5F)}, {"B", HostValue::integer(16'777'217)}};
    LoopbackHost host(options);
    const Ended real = run(host.port(), {"doctor", "--publish", "A"});
    EXPECT_EQ(real.code, 0) << real.out;
    EXPECT_TRUE(contains(real.out, "ok    output A: confirmed ("));
    EXPECT_TRUE(contains(real.out, "ok    echo A: 1.5 came back ("));
    const Ended integer = run(host.port(), {"doctor", "--publish", "B"});
    EXPECT_EQ(integer.code, 0) << integer.out;
    EXPECT_EQ(host.value("A"), HostValue::real(1.5F));
    EXPECT_EQ(host.value("B"), HostValue::integer(16'777'217));
    EXPECT_EQ(record.published("A"), "1.5");
}

TEST(DoctorNames, OutputNotConfirmed) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "doctor", "--publish", "A"});
    const auto peer = acceptAndAnswer(host, 2);
    EXPECT_EQ(readRequest(*peer).code, Request::OUTPUTS);
    expectVerdict(csx, 3, "output A", "the host does not confirm the output", "section 5");
}

TEST(DoctorNames, NoEcho) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "doctor", "--publish", "A"});
    const auto peer = acceptAndAnswer(host, 3);
    EXPECT_EQ(readRequest(*peer).code, Request::VALUES);
    expectVerdict(csx, 1, "echo A", "a published value does not come back", "section 7");
}

TEST(DoctorNames, LostAfterTheRegistration) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor", "--publish", "A"});
    const auto peer = acceptAndAnswer(host, 2);
    EXPECT_EQ(readRequest(*peer).code, Request::OUTPUTS);
    peer->reset();
    expectVerdict(csx, 4, "output A", "the connection was lost after the host had answered", "The connection was lost");
}

TEST(DoctorNames, LostBeforeTheEcho) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor", "--publish", "A"});
    const auto peer = acceptAndAnswer(host, 3);
    EXPECT_EQ(readRequest(*peer).code, Request::VALUES);
    peer->close();
    expectVerdict(csx, 4, "echo A", "the connection was lost after the host had answered", "The connection was lost");
}

}  // namespace
}  // namespace com_tesk::csx_test
