#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestEngine.h"

namespace com_tesk::test {

/// Returns a parameter whose value has these bits.
inline CSClient::Parameter record(const std::string& name, CSClient::ParameterType type, std::uint32_t bits) {
    return parameter(name, type, bits);
}

/// The hex text of a data frame around a body in which blanks are free.
std::string frame(const std::string& bodyHex);

/// A test engine whose tables read as text. Each of them takes `parameterMutex`.
class ParameterEngine : public TestEngine {
  public:
    using TestEngine::TestEngine;

    /// The frames written, without the version requests.
    std::vector<std::string> requests() const;
};

/// An engine whose senders write nothing: they note the call and give the result that the test has set.
class SenderEngine : public ParameterEngine {
  public:
    using ParameterEngine::ParameterEngine;

    int result = 0;

    /// Called in every sender, inside the critical section.
    std::function<void()> onSend;

    /// For example "register outputs A B", "publish mode 0 A". Ends with "UNLOCKED" when `parameterMutex` was not held.
    std::vector<std::string> calls;

    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) override;

  private:
    template <typename Entry>
    int note(std::string call, const std::vector<Entry*>& entries);
};

}  // namespace com_tesk::test
