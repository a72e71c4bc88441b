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
    const bool leadsToReady = newState == CONNECTED || newState == READY;
    if (leadsToReady) {
        leavesInputs = true;
        leavesOutputs = true;
    }
    state = newState;
    notify(Step::STATE_CHANGED, change);
    if (newState == CONNECTED) {
        setState(READY);
    } else if (newState == READY) {
        sendData(begin(6) + std::string(4, '\0'));
        reregister();
    } else if (newState == DISCONNECTED) {
        inputs.clear();
        inputIds.clear();
        outputs.clear();
        outputIds.clear();
    }
    if (leadsToReady) {
        leavesInputs = false;
        leavesOutputs = false;
    }
}

void Model::reregister() {
    if (inputs.empty() && outputs.empty()) {
        leavesInputs = false;
        leavesOutputs = false;
        return;
    }
    print("out", "Re-registering input/output parameters (" + std::to_string(inputs.size()) + "/" +
                     std::to_string(outputs.size()) + ")...");
    reregisterInputs();
    reregisterOutputs();
}

void Model::reregisterInputs() {
    leavesInputs = false;
    if (inputs.empty()) {
        return;
    }
    print("out", "Registering input parameters with server...");
    std::vector<Step::Record> definitions;
    for (const auto& input : inputs) {
        definitions.push_back({input.first, {input.second.type, input.second.mode, 0}});
    }
    inputIds.clear();
    inputs.clear();
    registerInputs(definitions);
}

void Model::reregisterOutputs() {
    leavesOutputs = false;
    if (outputs.empty()) {
        return;
    }
    print("out", "Registering output parameters with server...");
    std::vector<std::string> names;
    for (const auto& output : outputs) {
        names.push_back(output.first);
    }
    beginTableChange();
    sendOutputSubscription(names);
    endTableChange();
}

void Model::open() {
    if (state != DISCONNECTED) {
        log.push_back("result 2");
        return;
    }
    isPauseEnded = false;
    beginStateChange();
    setState(CONNECTING);
    address = 0x0100007F;
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
    if (stateChanges > 0 || othersHoldChange) {
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
    address = 0;
    port = 0;
    isPauseEnded = true;
}

void Model::sleep() {
    log.push_back("sleep");
    happen(Step::SLEEPING, 0);
}

void Model::wait(std::uint32_t wanted, std::uint32_t seconds) {
    const auto isSeen = [this, wanted] { return wanted == (othersAnnounceEnd ? DISCONNECTING : state); };
    for (std::uint32_t poll = 0; poll < seconds && !isSeen(); ++poll) {
        sleep();
    }
    log.push_back(isSeen() ? "result 1" : "result 0");
}

void Model::closeConnection() {
    if (!reconnects()) {
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
    announcesEnd = true;
    setState(DISCONNECTED);
    announcesEnd = false;
    endStateChange();
}

void Model::lose(std::uint32_t loss) {
    if (state != CONNECTED && state != READY) {
        return;
    }
    switch (loss) {
        case Step::HEADER_CLOSED:
            print("err", "Connection closed by server.");
            break;
        case Step::HEADER_ERROR:
            print("err", "Read error (104). Closing connection.");
            closeConnection();
            print("err", "Invalid header data received. Closing connection.");
            break;
        case Step::HEADER_SHORT:
            print("err", "Read error (bytes read 10). Closing connection.");
            break;
        case Step::HEADER_FOREIGN:
            print("err", "Invalid header data received. Closing connection.");
            break;
        case Step::NO_BODY:
            print("err", "Invalid message data received (32). Closing connection.");
            break;
        case Step::BODY_CLOSED:
            print("err", "EXIT: Connection closed by server.");
            break;
        default:
            print("err", "EXIT: Read error.");
            break;
    }
    closeConnection();
}

void Model::endTableChange() {
    --tableChanges;
    payOwedClose();
}

void Model::endStateChange() {
    --stateChanges;
    while (isCloseRequested && stateChanges == 0) {
        isCloseRequested = false;
        beginStateChange();
        beginDisconnecting();
        --stateChanges;
    }
    payOwedClose();
}

void Model::payOwedClose() {
    if (owesClose && tableChanges == 0 && stateChanges == 0) {
        owesClose = false;
        closeConnection();
    }
}

}  // namespace com_tesk::test
