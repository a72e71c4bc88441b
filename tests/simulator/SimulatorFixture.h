#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/CapturedStreams.h"
#include "tests/support/MessageOf.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {

using Lines = std::vector<std::string>;
using InputEntry = CSClientProtocol::InputParameterEntry;
using OutputEntry = CSClientProtocol::OutputParameterEntry;

/// Returns the requests since the last call.
inline Lines newRequests(TestEngine& engine) {
    Lines requests = engine.requests();
    engine.ignoreRequestsSoFar();
    return requests;
}

/// Connects. The requests that this sends are not new.
inline void makeReady(TestEngine& engine) {
    engine.connect();
    engine.ignoreRequestsSoFar();
}

/// Returns the hex text of the publication of integers by simulator 5, as pairs of id and value.
inline std::string publication(const std::vector<std::pair<unsigned int, unsigned int>>& values) {
    const auto count = static_cast<unsigned int>(values.size());
    std::string body = "04 02 7F FF " + hexWord(24 + 12 * count) + " 00 7F 00 03 00 05 00 00 00 00 00 00 ";
    body += hexWord(count);
    for (const auto& [id, value] : values) {
        body += ' ' + hexWord(id) + " 00 00 00 01 " + hexWord(value);
    }
    return body;
}

/// Also keeps what the last callbacks received, for example "A type 1 mode 2" for an input.
class KeepingCallbacks : public RecordingCallbacks {
  public:
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        definitions.clear();
        for (const auto& [name, type, mode] : inputs) {
            definitions.push_back(name + " type " + std::to_string(type) + " mode " + std::to_string(mode));
        }
        RecordingCallbacks::inputParametersConfirmed(inputs);
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        values = texts(parameters);
        RecordingCallbacks::inputParametersUpdated(parameters);
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        definitions.clear();
        for (const auto& [name, type] : outputs) {
            definitions.push_back(name + " type " + std::to_string(type));
        }
        RecordingCallbacks::outputParametersConfirmed(outputs);
    }

    /// Returns the lines since the last call.
    Lines newLines() {
        const Lines all = lines();
        const std::size_t begin = std::exchange(returned, all.size());
        return {all.begin() + static_cast<std::ptrdiff_t>(begin), all.end()};
    }

    Lines definitions;
    Lines values;

  private:
    std::size_t returned = 0;
};

/// A ready engine with the simulator id 5, which prints.
class SimulatorFixture : public ::testing::Test {
  protected:
    SimulatorFixture() {
        makeReady(engine);
        engine.addCallbackInterface(&callbacks);
    }

    Lines newCallbacks() { return callbacks.newLines(); }

    std::string printed() const { return streams.out() + streams.err(); }

    CapturedStreams streams;
    KeepingCallbacks callbacks;
    TestEngine engine{5};
};

}  // namespace com_tesk::test
