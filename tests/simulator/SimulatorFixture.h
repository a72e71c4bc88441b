#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/CapturedStreams.h"
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

/// Returns a received message.
inline RawMessage messageOf(const std::string& bodyHex, RawMessage::Type type = RawMessage::DATA) {
    const Bytes bytes = hex(bodyHex);
    RawMessage message(type);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
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

/// Also keeps what the last callbacks received.
class KeepingCallbacks : public RecordingCallbacks {
  public:
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        definitions.clear();
        for (const CSClient::InputDef& input : inputs) {
            definitions.push_back(input.name + " type " + std::to_string(input.type) + " mode " +
                                  std::to_string(input.subscriptionMode));
        }
        RecordingCallbacks::inputParametersConfirmed(inputs);
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        values = texts(parameters);
        RecordingCallbacks::inputParametersUpdated(parameters);
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        definitions.clear();
        for (const CSClient::OutputDef& output : outputs) {
            definitions.push_back(output.name + " type " + std::to_string(output.type));
        }
        RecordingCallbacks::outputParametersConfirmed(outputs);
    }

    /// For example "A type 1 mode 2" for an input, "A type 1" for an output.
    Lines definitions;
    /// For example "A type 1 bits 3F800000 reserved 0".
    Lines values;
};

/// A ready engine with the simulator id 5, which prints.
class SimulatorFixture : public ::testing::Test {
  protected:
    SimulatorFixture() {
        makeReady(engine);
        engine.addCallbackInterface(&callbacks);
    }

    /// Returns the lines of the callbacks since the last call.
    Lines newCallbacks() {
        const Lines all = callbacks.lines();
        const std::size_t begin = std::exchange(returned, all.size());
        return {all.begin() + static_cast<std::ptrdiff_t>(begin), all.end()};
    }

    std::string printed() const { return streams.out() + streams.err(); }

    CapturedStreams streams;
    KeepingCallbacks callbacks;
    TestEngine engine{5};

  private:
    std::size_t returned = 0;
};

}  // namespace com_tesk::test
