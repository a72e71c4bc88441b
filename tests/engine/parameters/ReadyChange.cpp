#include "tests/engine/parameters/ReadyChange.h"

#include <utility>

namespace com_tesk::test {

namespace {

/// Whether this thread makes a change that is reported.
thread_local bool isChanging = false;

constexpr std::size_t kHeaderText = 32 * 3;

/// A word for the count of few names.
std::string countWord(std::size_t count) {
    return " 00 00 00 0" + std::to_string(count);
}

}  // namespace

std::string placeName(Place place) {
    switch (place) {
        case Place::NOWHERE:
            return "Nowhere";
        case Place::CONNECTED_CALLBACK:
            return "ConnectedCallback";
        case Place::READY_CALLBACK:
            return "ReadyCallback";
        case Place::VERSION_WRITE:
            return "VersionWrite";
        case Place::AFTER_VERSION:
            return "AfterVersion";
        case Place::AFTER_SNAPSHOT:
            return "AfterSnapshot";
        case Place::INPUT_WRITE:
            return "InputWrite";
        case Place::BETWEEN:
            return "Between";
        case Place::OUTPUT_WRITE:
            return "OutputWrite";
        case Place::AFTER_REREGISTRATION:
            return "AfterReregistration";
    }
    return "";
}

ChangingEngine::ChangingEngine() : ParameterEngine(1, CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT) {
    fakeTransport().onWrite = [this] {
        if (isChanging) {
            reach(std::exchange(nextWrite, Place::NOWHERE));
        }
    };
}

void ChangingEngine::reach(Place place) {
    if (isChanging && place != Place::NOWHERE && onPlace) {
        onPlace(place);
    }
}

std::thread ChangingEngine::startChange(std::function<void()> work) {
    return std::thread([work = std::move(work)] {
        isChanging = true;
        work();
    });
}

int ChangingEngine::requestSimulatorVersion() {
    nextWrite = Place::VERSION_WRITE;
    const int result = ParameterEngine::requestSimulatorVersion();
    reach(Place::AFTER_VERSION);
    return result;
}

int ChangingEngine::registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) {
    reach(Place::AFTER_SNAPSHOT);
    const int result = ParameterEngine::registerInputParameters(definitions, count);
    reach(Place::BETWEEN);
    return result;
}

int ChangingEngine::sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    if (isChanging) {
        nextWrite = Place::INPUT_WRITE;
    }
    return ParameterEngine::sendInputSubscriptionRequest(entries);
}

int ChangingEngine::sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    if (isChanging) {
        nextWrite = Place::OUTPUT_WRITE;
    }
    return ParameterEngine::sendOutputSubscriptionRequest(entries);
}

void ChangingEngine::handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) {
    ParameterEngine::handleConnectionStateChange(oldState, newState);
    if (newState == CSClient::STATE_READY) {
        reach(Place::AFTER_REREGISTRATION);
    }
}

class ReadyChange::Callbacks : public RecordingCallbacks {
  public:
    explicit Callbacks(ChangingEngine& changingEngine) : engine(changingEngine) {}

    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        RecordingCallbacks::connectionStateChanged(oldState, newState);
        if (newState == CSClient::STATE_CONNECTED) {
            engine.reach(Place::CONNECTED_CALLBACK);
        } else if (newState == CSClient::STATE_READY) {
            engine.reach(Place::READY_CALLBACK);
        }
    }

  private:
    ChangingEngine& engine;
};

ReadyChange::ReadyChange() : callbacks(std::make_unique<Callbacks>(engine)) {
    engine.addCallbackInterface(callbacks.get());
    engine.skipPauses();
}

ReadyChange::~ReadyChange() {
    finish();
    engine.pretendState(CSClient::STATE_DISCONNECTED);
}

void ReadyChange::registerInputBefore() {
    ASSERT_EQ(engine.registerInputs({input("I")}), 0);
    engine.receive(inputsConfirmed({{9, "I"}}));
}

void ReadyChange::registerOutputBefore() {
    ASSERT_EQ(engine.registerOutputs({output("O")}), 0);
    engine.receive(outputsConfirmed({{7, "O"}}));
}

void ReadyChange::holdAt(Place place) {
    engine.onPlace = [this, place](Place reached) {
        if (reached == place) {
            gate.pass();
        }
    };
    changer = engine.startChange([this] { engine.connect(); });
    ASSERT_TRUE(gate.waitUntilReached());
}

void ReadyChange::finish() {
    gate.open();
    if (changer.joinable()) {
        changer.join();
    }
}

void ReadyChange::actAt(Place place, std::function<void()> action) {
    engine.onPlace = [place, action = std::move(action)](Place reached) mutable {
        if (reached == place && action) {
            // Once: what it registers passes through some of the places too.
            std::exchange(action, nullptr)();
        }
    };
    changer = engine.startChange([this] { engine.connect(); });
    finish();
}

std::vector<std::string> ReadyChange::bodies() {
    std::vector<std::string> found;
    for (const std::string& frame : engine.fakeTransport().written()) {
        found.push_back(frame.substr(kHeaderText));
    }
    return found;
}

Bodies operator+(Bodies first, const Bodies& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bodies versionRequest() {
    return {"04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00"};
}

Bodies inputRequest(const std::vector<std::string>& names) {
    static constexpr const char* kLengths[] = {"", "40", "6C", "98"};
    std::string body = std::string("04 02 7F FF 00 00 00 ") + kLengths[names.size()] + " 00 7F 00 01 00 01 00 00" +
                       countWord(names.size());
    for (const std::string& name : names) {
        body += " 00 00 2E E0 00 00 2E E0 00 00 00 00 " + hexField(name);
    }
    return names.empty() ? Bodies() : Bodies{body};
}

Bodies outputRequest(const std::vector<std::string>& names) {
    static constexpr const char* kLengths[] = {"", "3C", "64", "8C"};
    std::string body = std::string("04 02 7F FF 00 00 00 ") + kLengths[names.size()] + " 00 7F 00 02 00 01 00 00" +
                       countWord(names.size());
    for (const std::string& name : names) {
        body += " 00 00 04 B0 00 00 00 00 " + hexField(name);
    }
    return names.empty() ? Bodies() : Bodies{body};
}

Bodies inputEnd(const std::string& idHex) {
    return {"04 02 7F FF 00 00 00 18 00 7F 00 04 00 01 00 00 00 00 00 01 " + idHex};
}

Bodies outputEnd(const std::string& idHex) {
    return {"04 02 7F FF 00 00 00 18 00 7F 00 05 00 01 00 00 00 00 00 01 " + idHex};
}

Bodies publication(const std::string& idHex) {
    return {"04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 " + idHex +
            " 00 00 00 00 3F C0 00 00"};
}

}  // namespace com_tesk::test
