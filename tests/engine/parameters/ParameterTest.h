#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/CapturedStreams.h"
#include "tests/support/ParameterKinds.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {

using testing::ElementsAre;
using testing::IsEmpty;

/// @name Requests
/// The bodies of requests of simulator 1, as `TestEngine::requests` returns them.
/// @{
using Requests = std::vector<std::string>;

inline Requests operator+(Requests first, const Requests& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// One request with these bytes, whose blanks do not matter.
inline Requests requestOf(const std::string& bodyHex) {
    return {hexText(hex(bodyHex))};
}

inline Requests versionRequest() {
    return {"04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00"};
}

inline std::string words(const std::vector<unsigned int>& numbers) {
    std::string text;
    for (const unsigned int number : numbers) {
        text += hexWord(number);
    }
    return text;
}

/// One request with these records, or none. `mode` is the word before the count, which only a publication has.
inline Requests counted(unsigned int code, std::size_t count, const std::string& records,
                        const std::string& mode = "") {
    const std::string rest =
        "00 7F" + hexWord(code).substr(6) + "00 01 00 00" + mode + words({static_cast<unsigned int>(count)}) + records;
    return count == 0 ? Requests()
                      : requestOf("04 02 7F FF" + words({static_cast<unsigned int>(8 + hex(rest).size())}) + rest);
}

inline std::string integerFlag(CSClient::ParameterType type) {
    return words({type == CSClient::TYPE_INT ? 1U : 0U});
}

inline Requests inputRequest(const std::vector<CSClient::InputDef>& inputs) {
    std::string records;
    for (const CSClient::InputDef& each : inputs) {
        const std::string rate = each.subscriptionMode == 1   ? "00 00 2E E0"
                                 : each.subscriptionMode == 3 ? "00 01 D4 C0"
                                                              : "00 00 00 00";
        records += rate + rate + integerFlag(each.type) + hexField(each.name);
    }
    return counted(1, inputs.size(), records);
}

inline Requests outputRequest(const std::vector<CSClient::OutputDef>& outputs) {
    std::string records;
    for (const CSClient::OutputDef& each : outputs) {
        records += "00 00 04 B0" + integerFlag(each.type) + hexField(each.name);
    }
    return counted(2, outputs.size(), records);
}

inline Requests inputEnd(const std::vector<unsigned int>& ids) {
    return counted(4, ids.size(), words(ids));
}

inline Requests outputEnd(const std::vector<unsigned int>& ids) {
    return counted(5, ids.size(), words(ids));
}

struct SentValue {
    unsigned int id;
    unsigned int integerFlag;
    std::uint32_t bits;
};

inline Requests publication(const std::vector<SentValue>& values, unsigned int mode = 0) {
    std::string records;
    for (const SentValue& value : values) {
        records += words({value.id, value.integerFlag, value.bits});
    }
    return counted(3, values.size(), records, words({mode}));
}
/// @}

/// The id that a request carries for an unconfirmed parameter.
constexpr unsigned int kUnassigned = 0xFFFFF;

/// A name that is longer than what a string keeps without an allocation.
inline std::string longName(char last) {
    return std::string(30, 'n') + last;
}

/// A protocol that replaces operations of the engine. Hooks that are not set change nothing.
class DerivedEngine : public TestEngine {
  public:
    using TestEngine::TestEngine;

    std::function<int(const std::vector<CSClient::InputDef>&)> onRegisterInputs;    ///< Replaces the registration.
    std::function<void(const std::vector<std::string>& names)> onUnregisterInputs;  ///< Called before it.
    std::function<void()> onVersionRequested;                                       ///< Called after it.
    /// Replaces the handling of a change of state. `handle` is that of the engine.
    std::function<void(CSClient::State newState, const std::function<void()>& handle)> onState;

    int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) override {
        EXPECT_FALSE(holdsParameterMutex());
        // A copy, because the hook may replace itself.
        const auto replacement = onRegisterInputs;
        return replacement ? replacement({definitions, definitions + count})
                           : TestEngine::registerInputParameters(definitions, count);
    }
    int unregisterInputParameters(const std::vector<std::string>& names) override {
        EXPECT_FALSE(holdsParameterMutex());
        if (onUnregisterInputs) {
            onUnregisterInputs(names);
        }
        return TestEngine::unregisterInputParameters(names);
    }
    int requestSimulatorVersion() override {
        const int result = TestEngine::requestSimulatorVersion();
        if (onVersionRequested) {
            onVersionRequested();
        }
        return result;
    }
    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        const auto handle = [=] { TestEngine::handleConnectionStateChange(oldState, newState); };
        onState ? onState(newState, handle) : handle();
    }

    int registerAsTheEngine(const std::vector<CSClient::InputDef>& definitions) {
        return TestEngine::registerInputParameters(definitions.data(), static_cast<unsigned int>(definitions.size()));
    }
};

/// An engine for one kind of parameters that also returns the requests to expect.
template <typename Kind>
class EngineOf : public EngineOfKind<Kind> {
  public:
    using EngineOfKind<Kind>::EngineOfKind;

    static Requests request(const std::vector<Definition>& definitions) {
        const auto registered = EngineOf::registered(definitions);
        if constexpr (kIsOfInputs) {
            return inputRequest(registered);
        } else {
            return outputRequest(registered);
        }
    }
    static Requests end(const std::vector<unsigned int>& ids) { return kIsOfInputs ? inputEnd(ids) : outputEnd(ids); }

  private:
    static constexpr bool kIsOfInputs = std::is_same_v<Kind, test::Inputs>;
};

/// A test with an engine and the text that it prints.
template <typename Kind>
class ParameterTest : public testing::Test {
  protected:
    std::string printed() const { return streams.out() + streams.err(); }

    CapturedStreams streams;
    EngineOf<Kind> engine;
};

}  // namespace com_tesk::test
