// Registers everything again, after a reconnection or under a new simulator id. Intended: inputs and outputs are
// treated differently, and hosts rely on it. Inputs are rebuilt and wait for fresh ids. Outputs are sent again
// unchanged.

#include <utility>
#include <vector>

#include "comms/Diagnostics.h"
#include "engine/EngineParts.h"

namespace com_tesk {

using diagnostics::Decimal;

bool CSClientProtocol::Parts::isLeftToReregistration(ReregistrationGate& gate) const {
    // Intended: the thread that makes the change sends at once. A callback may register, and everything is then sent
    // again.
    if (gate.isPassed(connection.number()) || connection.isChangedByThisThread()) {
        return false;
    }
    gate.leave();
    return true;
}

void CSClientProtocol::Parts::registerWhatIsLeft() {
    // Fast path: usually the re-registration was made. It takes no lock, which another thread may hold in a blocked
    // write.
    if (tables.isReregistered(connection.number())) {
        return;
    }
    bool areInputsLeft = false;
    bool areOutputsLeft = false;
    {
        const ParameterTables::Lock lock(tables, orderOfThisThread());
        areInputsLeft = tables.inputs().gate().pass(connection.number());
        areOutputsLeft = tables.outputs().gate().pass(connection.number());
    }
    if (areInputsLeft) {
        reregisterInputs();
    }
    if (areOutputsLeft) {
        reregisterOutputs();
    }
}

bool CSClientProtocol::Parts::isNothingRegistered() {
    const ParameterTables::Lock lock(tables, orderOfThisThread());
    if (!tables.inputs().all().isEmpty() || !tables.outputs().all().isEmpty()) {
        return false;
    }
    // Decided under the same lock: a thread that registers from now on sends its own request.
    tables.inputs().gate().pass(connection.number());
    tables.outputs().gate().pass(connection.number());
    return true;
}

void CSClientProtocol::Parts::reregisterAll() {
    if (isNothingRegistered()) {
        return;
    }
    if (!isSilent()) {
        diagnostics::progress({"Re-registering input/output parameters (", Decimal(tables.numberOfInputs(false)), "/",
                               Decimal(tables.numberOfOutputs(false)), ")..."});
    }
    engine.reregisterAllInputParameters();
    engine.reregisterAllOutputParameters();
}

void CSClientProtocol::Parts::reregisterInputs() {
    InputTable::Entries oldInputs;
    std::vector<CSClient::InputDef> definitions;
    {
        const ParameterTables::Lock lock(tables, orderOfThisThread());
        tables.inputs().gate().pass(connection.number());
        if (tables.inputs().all().isEmpty()) {
            return;
        }
        if (!isSilent()) {
            diagnostics::progress({"Registering input parameters with server..."});
        }
        definitions = tables.inputs().definitions();
        tables.inputs().takeAll(oldInputs);
    }
    try {
        engine.registerInputParameters(definitions.data(), static_cast<unsigned int>(definitions.size()));
    } catch (...) {
        // When memory runs out, or the thread is cancelled, the inputs stay registered, unconfirmed.
        for (const auto& nameAndEntry : oldInputs) {
            nameAndEntry.second->serverId = kUnassignedId;
        }
        const ParameterTables::Lock lock(tables, orderOfThisThread());
        tables.inputs().restore(oldInputs);
        throw;
    }
}

void CSClientProtocol::Parts::reregisterOutputs() {
    underParameterLock([this]() CSCLIENT_REQUIRES(tables.mutex()) {
        tables.outputs().gate().pass(connection.number());
        if (tables.outputs().all().isEmpty()) {
            return 0;
        }
        if (!isSilent()) {
            diagnostics::progress({"Registering output parameters with server..."});
        }
        return engine.sendOutputSubscriptionRequest(tables.outputs().all().entries());
    });
}

}  // namespace com_tesk
