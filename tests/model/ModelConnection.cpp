#include "tests/model/Model.h"

namespace com_tesk::test {

namespace {

enum : std::uint32_t { DISCONNECTED, CONNECTING, CONNECTED, DISCONNECTING, READY, RECONNECTING };

}  // namespace

void Model::setState(std::uint32_t newState) {
    if (newState == state) {
        return;
    }
    const std::string change = "state " + std::to_string(state) + "->" + std::to_string(newState);
    if (newState == CONNECTED) {
        inputs.isLeft = outputs.isLeft = true;
    }
    state = newState;
    notify(Step::STATE_CHANGED, change);
    if (newState == CONNECTED) {
        setState(READY);
        inputs.isLeft = outputs.isLeft = false;
    } else if (newState == READY) {
        send(1, begin(6) + std::string(4, '\0'));
        reregister();
    } else if (newState == DISCONNECTED) {
        inputs = outputs = Table();
    }
}

void Model::reregister() {
    if (inputs.entries.empty() && outputs.entries.empty()) {
        inputs.isLeft = outputs.isLeft = false;
        return;
    }
    print("out", "Re-registering input/output parameters (" + std::to_string(inputs.entries.size()) + "/" +
                     std::to_string(outputs.entries.size()) + ")...");
    reregisterInputs();
    reregisterOutputs();
}

/// Inputs are registered anew, and wait for new ids.
void Model::reregisterInputs() {
    inputs.isLeft = false;
    if (inputs.entries.empty()) {
        return;
    }
    print("out", "Registering input parameters with server...");
    std::vector<Step::Record> definitions;
    for (const auto& [name, input] : inputs.entries) {
        definitions.push_back({name, {input.type, input.mode, 0}});
    }
    inputs = Table();
    registerAll(INPUTS, definitions);
}

/// Outputs are sent again, and stay as they are.
void Model::reregisterOutputs() {
    outputs.isLeft = false;
    if (outputs.entries.empty()) {
        return;
    }
    print("out", "Registering output parameters with server...");
    Names names;
    for (const auto& nameAndOutput : outputs.entries) {
        names.push_back(nameAndOutput.first);
    }
    beginTableChange();
    sendRegistration(OUTPUTS, names);
    endTableChange();
}

bool Model::isConnected() const {
    return state == CONNECTED || state == READY;
}

/// Until the end is complete, other threads see the state before it.
std::uint32_t Model::seenState() const {
    return othersAnnounceEnd ? DISCONNECTING : state;
}

void Model::open() {
    isPauseEnded = false;
    beginStateChange();
    setState(CONNECTING);
    port = 55580;
    endStateChange();
}

void Model::connect(bool accepted) {
    if (state != CONNECTING) {
        return;
    }
    log.push_back("connect");
    if (!accepted) {
        closeConnection();
        return;
    }
    beginStateChange();
    setState(CONNECTED);
    endStateChange();
}

void Model::forceClose() {
    if (own.stateChanges > 0 || doOthersHoldChange()) {
        if (state != DISCONNECTED) {
            isCloseRequested = true;
            isPauseEnded = true;
        }
        return;
    }
    beginStateChange();
    beginDisconnecting();
    endStateChange();
}

void Model::beginDisconnecting() {
    if (state == DISCONNECTED || state == DISCONNECTING) {
        return;
    }
    setState(DISCONNECTING);
    port = 0;
    isPauseEnded = true;
}

void Model::sleep() {
    log.push_back("sleep");
    happen(Step::SLEEPING, 0);
}

std::uint32_t Model::wait(std::uint32_t wanted, std::uint32_t seconds) {
    for (std::uint32_t poll = 0; poll < seconds && seenState() != wanted; ++poll) {
        sleep();
    }
    return seenState() == wanted ? 1 : 0;
}

void Model::closeConnection() {
    if ((options & 1U) == 0) {
        forceClose();
        return;
    }
    if (state == DISCONNECTED || state == DISCONNECTING) {
        return;
    }
    beginStateChange();
    if (state == READY) {
        print("out", "Attempting to reconnect...");
        setState(RECONNECTING);
        setState(CONNECTING);
    } else if (state == CONNECTED) {
        setState(CONNECTING);
    }
    endStateChange();
    if (!isPauseEnded) {
        sleep();
    }
}

void Model::end() {
    if (state != DISCONNECTING) {
        return;
    }
    log.push_back("disconnect");
    beginStateChange();
    own.announcesEnd = true;
    setState(DISCONNECTED);
    own.announcesEnd = false;
    endStateChange();
}

void Model::lose(std::uint32_t loss) {
    // By `Step::Loss`.
    static const char* const lines[] = {
        "Connection closed by server.",
        "Read error (104). Closing connection.",
        "Read error (bytes read 10). Closing connection.",
        "Invalid header data received. Closing connection.",
        "Invalid message data received (32). Closing connection.",
        "EXIT: Connection closed by server.",
        "EXIT: Read error.",
    };
    if (!isConnected()) {
        return;
    }
    print("err", lines[loss]);
    closeConnection();
    if (loss == Step::HEADER_ERROR) {
        print("err", lines[Step::HEADER_FOREIGN]);
        closeConnection();
    }
}

void Model::endTableChange() {
    --own.tableChanges;
    performDeferredClose();
}

void Model::endStateChange() {
    --own.stateChanges;
    while (isCloseRequested && own.stateChanges == 0) {
        isCloseRequested = false;
        beginStateChange();
        beginDisconnecting();
        --own.stateChanges;
    }
    performDeferredClose();
}

void Model::performDeferredClose() {
    if (own.isCloseDeferred && own.tableChanges == 0 && own.stateChanges == 0) {
        own.isCloseDeferred = false;
        closeConnection();
    }
}

}  // namespace com_tesk::test
