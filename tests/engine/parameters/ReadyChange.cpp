#include "tests/engine/parameters/ReadyChange.h"

#include <utility>

namespace com_tesk::test {

namespace {

/// True when this thread makes a change.
thread_local bool isChanging = false;
thread_local int writes = 0;

}  // namespace

ReadyChange::ReadyChange() {
    callbacks.onLine = [this](const std::string& line) {
        if (line == "state 1->2" || line == "state 2->4") {
            reach(line == "state 1->2" ? kConnectedCallback : kReadyCallback);
        }
    };
    engine.fakeTransport().onWrite = [this] { reach("Write" + std::to_string(++writes)); };
    engine.onVersionRequested = [this] { reach(kAfterVersion); };
    engine.onRegisterInputs = [this](const std::vector<CSClient::InputDef>& definitions) {
        reach(kAfterSnapshot);
        const int result = engine.registerAsTheEngine(definitions);
        reach(kBetween);
        return result;
    };
    engine.onState = [this](CSClient::State newState, const std::function<void()>& handle) {
        handle();
        if (newState == CSClient::STATE_READY) {
            reach(kAfterReregistration);
        }
    };
    engine.addCallbackInterface(&callbacks);
    engine.skipPauses();
}

ReadyChange::~ReadyChange() {
    finish();
    engine.pretendState(CSClient::STATE_DISCONNECTED);
}

void ReadyChange::reach(const std::string& place) const {
    if (isChanging && onPlace) {
        onPlace(place);
    }
}

void ReadyChange::registerBefore(bool hasInput, bool hasOutput) {
    if (hasInput) {
        EXPECT_EQ(engine.registerInputs({input("I")}), 0);
        engine.receive(inputsConfirmed({{9, "I"}}));
    }
    if (hasOutput) {
        EXPECT_EQ(engine.registerOutputs({output("O")}), 0);
        engine.receive(outputsConfirmed({{7, "O"}}));
    }
}

void ReadyChange::registerBoth() {
    EXPECT_EQ(engine.registerInputs({input("X")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
}

void ReadyChange::begin() {
    changer = std::thread([this] {
        isChanging = true;
        engine.connect();
    });
}

void ReadyChange::stopAt(const std::string& place) {
    onPlace = [this, place](const std::string& reached) {
        if (reached == place) {
            gate.pass();
        }
    };
    begin();
    ASSERT_TRUE(gate.waitUntilReached());
}

void ReadyChange::actAt(const std::string& place, std::function<void()> action) {
    onPlace = [place, action = std::move(action)](const std::string& reached) mutable {
        if (reached == place && action) {
            // Once, because the action reaches some of the places too.
            std::exchange(action, nullptr)();
        }
    };
    begin();
    finish();
}

void ReadyChange::finish() {
    gate.open();
    if (changer.joinable()) {
        changer.join();
    }
}

int publishO(TestEngine& engine) {
    return engine.publish({floatParameter("O", 1.5F)});
}

Requests publicationOf(unsigned int id) {
    return publication({{id, 0, 0x3FC00000}});
}

}  // namespace com_tesk::test
