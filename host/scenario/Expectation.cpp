#include "host/scenario/Expectation.h"

#include <sstream>

namespace com_tesk::scenario {

namespace {

std::string listOf(const char* what, const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? what : ", ") + name;
    }
    return text;
}

std::string numberText(double number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

std::string textOf(Duration duration) {
    return numberText(std::chrono::duration<double>(duration).count()) + " s";
}

std::string whatOf(const Expectation& expectation) {
    const std::string names = listOf(" inputs ", expectation.inputs) + listOf(" outputs ", expectation.outputs);
    switch (expectation.kind) {
        case Expectation::Kind::CONNECTS:
            return "client connects";
        case Expectation::Kind::DISCONNECTS:
            return "client disconnects";
        case Expectation::Kind::ASKS_VERSION:
            return "client asks for the version";
        case Expectation::Kind::REGISTERS:
            return "client registers" + names;
        case Expectation::Kind::UNREGISTERS:
            return "client unregisters" + names;
        case Expectation::Kind::PUBLISHES:
            return "client publishes " + expectation.name +
                   (expectation.value ? " = " + numberText(*expectation.value) : "") +
                   (expectation.tolerance != 0 ? " +- " + numberText(expectation.tolerance) : "") +
                   (expectation.rate != 0 ? " at " + numberText(expectation.rate) + " Hz" : "") +
                   (expectation.lasting.count() != 0 ? " for " + textOf(expectation.lasting) : "");
        case Expectation::Kind::UNKNOWN_ID:
            return "client uses an id that the host has not assigned";
        case Expectation::Kind::BAD_REQUEST:
            return "client sends what is no request";
    }
    return {};
}

}  // namespace

std::string describe(const Expectation& expectation) {
    std::string text = (expectation.isNever ? "never: " : "") + whatOf(expectation);
    const auto addCount = [&text](const char* how, const std::optional<unsigned>& count) {
        if (count) {
            text += how + std::to_string(*count) + (*count == 1 ? " time" : " times");
        }
    };
    addCount(" exactly ", expectation.exactly);
    addCount(" at least ", expectation.atLeast);
    addCount(" at most ", expectation.atMost);
    if (expectation.within) {
        text += " within " + textOf(*expectation.within);
    }
    if (!expectation.after.empty()) {
        text += " after " + expectation.after;
    }
    return text;
}

}  // namespace com_tesk::scenario
