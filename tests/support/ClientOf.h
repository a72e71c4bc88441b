#pragma once

#include <type_traits>

#include "client/CSClient.h"

namespace com_tesk::test {

/// A client with an engine that the test can reach.
template <typename Engine>
class ClientOf : public CSClient {
  public:
    explicit ClientOf(unsigned int optionFlags = OPTION_SILENT)
        : CSClient(optionFlags), probed(newEngine(optionFlags)) {
        engine = probed;
    }
    /// A state that is only pretended has no worker to end it.
    ~ClientOf() override {
        if (pretends) {
            probed->pretendState(STATE_DISCONNECTED);
        }
    }

    void pretendState(State state) {
        pretends = true;
        probed->pretendState(state);
    }

    Engine* const probed;

  private:
    /// Some engines of tests take a simulator id in front of the options.
    static Engine* newEngine(unsigned int optionFlags) {
        if constexpr (std::is_constructible_v<Engine, unsigned int, unsigned int>) {
            return new Engine(1U, optionFlags);
        } else {
            return new Engine(optionFlags);
        }
    }

    bool pretends = false;
};

}  // namespace com_tesk::test
