// Passes messages of the host to the dispatcher of an engine whose callbacks call the engine. Compares the engine with the
// model of tests/model after each step, and parses every request that it sends with the loopback host's parser.
//
// The input: a count and as many actions for the callbacks, one byte each. Then steps, each a number of two bytes:
//   below FE 00  the length of a message body, which follows
//   FE xx        ends the connection and starts another one
//   FF xx        performs the action xx
// The upper four bits of an action select the operation, the lower four bits the names.

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "fuzz/Fuzzing.h"
#include "host/FrameReader.h"
#include "host/Requests.h"
#include "tests/model/Step.h"
#include "tests/model/StepRunner.h"

namespace host = com_tesk::host;
using com_tesk::fuzz::Bytes;
using com_tesk::fuzz::Input;
using com_tesk::test::Step;
using com_tesk::test::StepSequence;

namespace {

constexpr std::uint32_t kFloat = 1;
constexpr std::uint32_t kInteger = 2;

/// Includes the longest valid name, a name that is too long, the empty name, and a name that is cut on the wire.
const std::string kNames[] = {
    "A",
    "ALT",
    "SPEED",
    "HDG",
    "",
    "a-name-of-exactly-31-characters",
    "a-name-that-has-32-characters---",
    std::string("N\0UL", 4),
};
constexpr std::uint32_t kNumberOfNames = sizeof kNames / sizeof kNames[0];

Step step(Step::Kind kind, std::array<std::uint32_t, 4> numbers = {}, std::vector<Step::Record> records = {}) {
    Step made;
    made.kind = kind;
    made.numbers = numbers;
    made.records = std::move(records);
    return made;
}

/// @param lastValue  the last published value; each published value is another.
std::vector<Step> stepsOf(std::uint8_t action, std::uint32_t& lastValue) {
    const std::uint32_t number = action & 0xFU;
    const bool isSecondHalf = number >= kNumberOfNames;
    const std::string& name = kNames[number % kNumberOfNames];
    const std::string& nextName = kNames[(number + 1) % kNumberOfNames];
    // A call that contains the same name twice is refused.
    const std::string& otherName = isSecondHalf ? nextName : name;
    const std::uint32_t type = isSecondHalf ? kFloat : kInteger;
    const std::vector<Step::Record> several = {{nextName, {type, 1}}, {name, {kInteger, 2}}, {otherName, {type, 3}}};
    switch (action >> 4U) {
        case 0:
            return {step(Step::REGISTER_INPUTS, {}, {{name, {type, number}}})};
        case 1:
            return {step(Step::REGISTER_OUTPUTS, {}, {{name, {type}}})};
        case 2:
            return {step(Step::REGISTER_INPUTS, {}, several)};
        case 3:
            return {step(Step::REGISTER_OUTPUTS, {}, several)};
        case 4:
            return {step(Step::UNREGISTER_INPUTS, {}, {{name}, {nextName}})};
        case 5:
            return {step(Step::UNREGISTER_OUTPUTS, {}, {{name}, {nextName}, {name}})};
        case 6:
            return {step(Step::PUBLISH, {}, {{name, {kInteger, ++lastValue}}})};
        case 7:
            return {step(Step::PUBLISH, {}, {{name, {kInteger, ++lastValue}}, {nextName, {kInteger, ++lastValue}}})};
        case 8:
            return {step(number % 2 == 0 ? Step::UNREGISTER_ALL_INPUTS : Step::UNREGISTER_ALL_OUTPUTS)};
        case 9:
            // Registrations refuse this type.
            return {step(Step::REGISTER_INPUTS, {}, {{name, {0, 1}}}), step(Step::REGISTER_OUTPUTS, {}, {{name, {0}}})};
        case 10:
            return {step(Step::QUERY, {}, {{name}, {nextName}})};
        case 11:
            return {step(Step::SET_SIMULATOR_ID, {number << 12U | number})};
        case 12:
            return {step(Step::FAIL_WRITE, {0xFFFFFFFF, 32})};
        case 13:
            return {step(Step::REREGISTER)};
        case 14:
            return {step(Step::FORCE_CLOSE)};
        default:
            return {step(number % 2 == 0 ? Step::ADD : Step::REMOVE, {1})};
    }
}

StepSequence sequenceFrom(Input& input) {
    StepSequence sequence;
    std::uint32_t lastValue = 0;
    // The first callback is for the established connection.
    sequence.steps = {step(Step::OPEN), step(Step::ADD)};
    for (const std::uint8_t action : input.countedBytes()) {
        sequence.steps.push_back(step(Step::DURING, {Step::ANY_CALLBACK}));
        sequence.steps.back().inside = stepsOf(action, lastValue);
    }
    sequence.steps.push_back(step(Step::CONNECT));
    while (!input.empty()) {
        const std::uint8_t high = input.byte();
        const std::uint8_t low = input.byte();
        std::vector<Step> next;
        if (high == 0xFF) {
            next = stepsOf(low, lastValue);
        } else if (high == 0xFE) {
            next = {step(Step::FORCE_CLOSE), step(Step::END), step(Step::OPEN), step(Step::CONNECT)};
        } else {
            const Bytes body = input.bytes(std::size_t{high} << 8U | low);
            next = {step(Step::DISPATCH, {}, {{std::string(body.begin(), body.end())}})};
        }
        sequence.steps.insert(sequence.steps.end(), next.begin(), next.end());
    }
    sequence.steps.push_back(step(Step::FORCE_CLOSE));
    sequence.steps.push_back(step(Step::END));
    return sequence;
}

void checkFrame(const std::string& sent) {
    host::FrameReader reader;
    const Bytes bytes(sent.begin(), sent.end());
    const std::vector<host::Frame> frames = reader.feed(bytes.data(), bytes.size());
    CSCLIENT_FUZZ_CHECK(frames.size() == 1 && !reader.inMidFrame());
    CSCLIENT_FUZZ_CHECK(!std::holds_alternative<host::BadRequest>(host::parseRequest(frames[0].body)));
}

}  // namespace

/// Nothing here sleeps: the engine does not reconnect, and there is one thread.
void com_tesk::test::runWithoutSleeping(const std::function<void()>& /*onSleep*/,
                                        const std::function<void()>& /*onPoll*/, const std::function<void()>& steps) {
    steps();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const StepSequence sequence = sequenceFrom(input);
    if (const auto difference = com_tesk::test::firstDifference(sequence, checkFrame)) {
        std::fprintf(stderr, "After step %zu of:\n%s%s", difference->step + 1, textOf(sequence).c_str(),
                     difference->what.c_str());
        com_tesk::fuzz::fail("the engine does what the model does", __FILE__, __LINE__);
    }
    return 0;
}
