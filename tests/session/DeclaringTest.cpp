// Names, types and deliveries of declarations, and the requests that they cause.

#include <stdexcept>
#include <string>
#include <type_traits>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

using namespace std::string_literals;

template <typename Handle, typename Value, typename = void>
struct IsSettable : std::false_type {};
template <typename Handle, typename Value>
struct IsSettable<Handle, Value, std::void_t<decltype(std::declval<const Handle&>().set(std::declval<Value>()))>>
    : std::true_type {};

using IntOutput = Output<std::int32_t>;
static_assert(IsSettable<IntOutput, std::int32_t>::value && IsSettable<IntOutput, bool>::value);
static_assert(!IsSettable<IntOutput, float>::value && !IsSettable<IntOutput, double>::value);
static_assert(!IsSettable<Output<bool>, float>::value && !IsSettable<Output<bool>, double>::value);
static_assert(IsSettable<Output<float>, float>::value && IsSettable<Output<float>, double>::value);
static_assert(IsSettable<Output<float>, int>::value);
static_assert(sizeof(IntOutput) == sizeof(void*) && sizeof(Input<bool>) == sizeof(void*));
static_assert(std::is_trivially_copyable_v<IntOutput> && std::is_trivially_copyable_v<Input<float>>);

using Declaring = SessionTest;

/// Returns the text of the exception with which an output is refused; empty when it is accepted.
std::string refusal(Session& session, const std::string& name) {
    try {
        session.output<float>(name);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

TEST_F(Declaring, NamesOfOneToThirtyOneBytesAreAccepted) {
    Session session(options);
    EXPECT_EQ(refusal(session, "A"), "");
    EXPECT_EQ(refusal(session, std::string(31, 'B')), "");
    EXPECT_EQ(session.input<bool>(std::string(31, 'B')).name(), std::string(31, 'B'));
    EXPECT_EQ(session.parameters().size(), 3U);
}

TEST_F(Declaring, OtherNamesAreRefusedWithATextThatQuotesThem) {
    Session session(options);
    const std::string longest(32, 'C');
    for (const auto& [name, shown] : {std::pair(""s, ""s), {longest, longest}, {"D\0E"s, "D\\0E"s}, {"\0"s, "\\0"s}}) {
        EXPECT_NE(refusal(session, name).find('"' + shown + "\" is not valid"), std::string::npos) << shown;
        EXPECT_THROW(session.input<float>(name), std::invalid_argument);
    }
    EXPECT_EQ(session.parameters().size(), 0U);
}

TEST_F(Declaring, SameDeclarationReturnsTheSameParameter) {
    Session session(options);
    const auto first = session.output<std::int32_t>("GEAR");
    const auto second = session.output<std::int32_t>("GEAR");
    EXPECT_EQ(&first.name(), &second.name());
    EXPECT_EQ(session.parameters().size(), 1U);
}

TEST_F(Declaring, AnotherTypeOrDeliveryIsRefusedAndChangesNothing) {
    Session session(options);
    session.output<std::int32_t>("GEAR");
    session.input<bool>("LAMP", Delivery::EVERY);
    EXPECT_THROW(session.output<float>("GEAR"), std::invalid_argument);
    EXPECT_THROW(session.output<bool>("GEAR"), std::invalid_argument);
    EXPECT_THROW(session.output<std::int32_t>("GEAR", Delivery::EVERY), std::invalid_argument);
    EXPECT_THROW(session.input<std::int32_t>("LAMP", Delivery::EVERY), std::invalid_argument);
    EXPECT_THROW(session.input<bool>("LAMP"), std::invalid_argument);
    const auto parameters = session.parameters();
    ASSERT_EQ(parameters.size(), 2U);
    EXPECT_EQ(parameters[0].type, ParameterStatus::Type::INT);
    EXPECT_EQ(parameters[0].delivery, Delivery::NEWEST);
    EXPECT_EQ(parameters[1].type, ParameterStatus::Type::BOOL);
    EXPECT_EQ(parameters[1].delivery, Delivery::EVERY);
}

TEST_F(Declaring, OutputAndInputMayHaveTheSameName) {
    Session session(options);
    EXPECT_NO_THROW(session.output<float>("BOTH"));
    EXPECT_NO_THROW(session.input<bool>("BOTH"));
}

TEST_F(Declaring, BeforeStartEachDirectionTakesOneRequest) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    for (int i = 0; i < 50; ++i) {
        session.output<std::int32_t>("OUT" + std::to_string(i));
        session.input<float>("IN" + std::to_string(i));
    }
    session.start();
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    EXPECT_EQ(readRequest(*peer).code, Request::VERSION);
    const Request outputs = readRequest(*peer);
    EXPECT_EQ(outputs.code, Request::OUTPUTS);
    ASSERT_EQ(outputs.records.size(), 50U);
    EXPECT_EQ(outputs.records[49].name, "OUT49");
    EXPECT_EQ(outputs.records[49].flag, 1U);
    const Request inputs = readRequest(*peer);
    EXPECT_EQ(inputs.code, Request::INPUTS);
    ASSERT_EQ(inputs.records.size(), 50U);
    EXPECT_EQ(inputs.records[0].name, "IN0");
    EXPECT_EQ(inputs.records[0].flag, 0U);
    EXPECT_TRUE(peer->isQuietFor(50ms));
}

TEST_F(Declaring, LaterDeclarationsAreRegisteredAtOnce) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    session.start();
    const auto peer = acceptAndAnswer(host, 1);
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    const auto lamp = session.input<bool>("LAMP");
    EXPECT_EQ(session.link(), Link::ANSWERED);
    const Request inputs = readRequest(*peer);
    EXPECT_EQ(inputs.names(), std::vector<std::string>{"LAMP"});
    EXPECT_EQ(inputs.records[0].flag, 1U) << "a bool is an integer on the wire";
    EXPECT_FALSE(lamp.isConfirmed());
    answer(*peer, inputs, 7);
    EXPECT_TRUE(session.waitConfirmed({lamp}, kWaitBound));
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    session.output<float>("ALT");
    EXPECT_EQ(readRequest(*peer).names(), std::vector<std::string>{"ALT"});
}

TEST_F(Declaring, WithdrawnParametersAreUnregisteredById) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<float>("ALT");
    const auto lamp = session.input<bool>("LAMP");
    session.start();
    const auto peer = acceptAndAnswer(host, 3);
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    altitude.withdraw();
    const Request outputs = readRequest(*peer);
    EXPECT_EQ(outputs.code, Request::REMOVE_OUTPUTS);
    ASSERT_EQ(outputs.records.size(), 1U);
    EXPECT_EQ(outputs.records[0].id, 1U);
    lamp.withdraw();
    lamp.withdraw();
    const Request inputs = readRequest(*peer);
    EXPECT_EQ(inputs.code, Request::REMOVE_INPUTS);
    ASSERT_EQ(inputs.records.size(), 1U);
    EXPECT_EQ(inputs.records[0].id, 101U);
    EXPECT_FALSE(altitude.set(1));
    EXPECT_FALSE(altitude.isConfirmed());
    EXPECT_FALSE(lamp.isConfirmed());
    EXPECT_EQ(session.parameters().size(), 0U);
    EXPECT_EQ(session.link(), Link::READY) << "nothing declared is unconfirmed";
    peer->send(test::hexFrame(test::update(1, {test::updated(101, 1, "00 00 00 01")})));
    EXPECT_TRUE(waitUntil([&] { return session.health().unknownIds == 1; }));
    EXPECT_EQ(lamp.read().number, 1U) << "only the value of the confirmation";
    session.flush();
    EXPECT_TRUE(peer->isQuietFor(30ms));
}

TEST_F(Declaring, WithdrawnNamesMayBeDeclaredAgainWithAnotherType) {
    LoopbackHost host(record.options());
    Session session(optionsFor(host.port()));
    const auto real = session.output<float>("GEAR");
    real.set(1.5F);
    session.start();
    ASSERT_TRUE(record.waitForPublished("GEAR", "1.5"));
    real.withdraw();
    const auto whole = session.output<std::int32_t>("GEAR");
    EXPECT_TRUE(whole.set(3));
    EXPECT_FALSE(real.set(2.5F));
    ASSERT_TRUE(record.waitForPublished("GEAR", "1.5 3"));
    EXPECT_EQ(host.value("GEAR"), HostValue::integer(3));
    EXPECT_EQ(record.count(HostEvent::Kind::OUTPUT_UNREGISTERED, "GEAR"), 1U);
    whole.withdraw();
    const auto again = session.output<float>("GEAR");
    EXPECT_EQ(&again.name(), &real.name()) << "the same parameter as the first time";
    EXPECT_TRUE(real.set(4.5F));
    EXPECT_TRUE(host.waitForValue("GEAR", HostValue::real(4.5F), kWaitBound));
}

TEST_F(Declaring, WithdrawnBeforeTheConfirmationIsUnregisteredAfterIt) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<float>("ALT");
    const auto lamp = session.input<bool>("LAMP");
    altitude.set(1);
    session.start();
    const auto peer = acceptAndAnswer(host, 1);
    const Request outputs = readRequest(*peer);
    const Request inputs = readRequest(*peer);
    altitude.withdraw();
    lamp.withdraw();
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_TRUE(peer->isQuietFor(30ms));
    answer(*peer, outputs, 5);
    const Request outputsRemoved = readRequest(*peer);
    EXPECT_EQ(outputsRemoved.code, Request::REMOVE_OUTPUTS) << "no value may leave";
    EXPECT_EQ(outputsRemoved.records.at(0).id, 5U);
    answer(*peer, inputs, 6);
    const Request inputsRemoved = readRequest(*peer);
    EXPECT_EQ(inputsRemoved.code, Request::REMOVE_INPUTS);
    EXPECT_EQ(inputsRemoved.records.at(0).id, 6U);
}

TEST_F(Declaring, WithdrawnAndDeclaredBeforeTheConfirmationStays) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<float>("ALT");
    session.start();
    const auto peer = acceptAndAnswer(host, 1);
    const Request outputs = readRequest(*peer);
    altitude.withdraw();
    session.output<float>("ALT");
    altitude.set(7);
    answer(*peer, outputs, 5);
    const Request values = readRequest(*peer);
    EXPECT_EQ(values.code, Request::VALUES);
    EXPECT_EQ(values.records.at(0).id, 5U);
    EXPECT_EQ(values.records.at(0).value, 0x40E00000U);
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
}

TEST_F(Declaring, ValuesOfAWithdrawnOutputDoNotDelayFlushAndStop) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    const auto early = session.output<float>("EARLY");
    early.set(1);
    early.withdraw();
    const auto late = session.output<float>("LATE");
    late.set(2);
    session.start();
    const auto peer = acceptAndAnswer(host, 1);
    EXPECT_EQ(readRequest(*peer).names(), std::vector<std::string>{"LATE"});
    EXPECT_FALSE(session.flush(50ms)) << "LATE is not confirmed";
    late.withdraw();
    EXPECT_TRUE(session.flush(kWaitBound));
    std::thread reader([&peer] { peer->waitForEnd(); });
    EXPECT_TRUE(session.stop(kWaitBound));
    reader.join();
}

TEST(SessionOptions, InvalidOnesAreRefusedByName) {
    const auto refusalOf = [](const std::function<void(Session::Options&)>& change) -> std::string {
        Session::Options options;
        change(options);
        try {
            const Session session(options);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "";
    };
    using Options = Session::Options;
    const auto refuses = [&](const char* name, const std::function<void(Options&)>& change) {
        EXPECT_NE(refusalOf(change).find(name), std::string::npos) << name << ": " << refusalOf(change);
    };
    refuses("host", [](Options& options) { options.host = ""; });
    refuses("host", [](Options& options) { options.host = "a\0b"s; });
    refuses("port", [](Options& options) { options.port = 0; });
    refuses("simulatorId", [](Options& options) { options.simulatorId = 32'768; });
    refuses("heartbeat", [](Options& options) { options.heartbeat = -1ms; });
    refuses("answerTimeout", [](Options& options) { options.answerTimeout = -1ms; });
    refuses("retry", [](Options& options) { options.retry = 0ms; });
    refuses("gather", [](Options& options) { options.gather = -1us; });
    refuses("queueSize", [](Options& options) { options.queueSize = 0; });
    EXPECT_EQ(refusalOf([](Options& options) {
                  options.simulatorId = 32'767;
                  options.retry = 1ms;
                  options.queueSize = 1;
                  options.gather = 0us;
              }),
              "");
}

}  // namespace
}  // namespace com_tesk::session_test
