#include "engine/ParameterTables.h"

#include <ctime>

#include "comms/CSLockGuard.h"

namespace com_tesk {

namespace {

/// The wait of a sending thread while the worker waits for the tables. It is at most 10 ms in all, because the worker
/// may itself wait for a third thread.
constexpr timespec kYield{0, 50'000};
constexpr int kMaxYields = 200;

template <typename Table>
int unconfirmedIn(const Table& table) {
    return static_cast<int>(table.size(false)) - static_cast<int>(table.size(true));
}

/// Returns the type as which a value is read: a float, unless `type` is `TYPE_INT`.
CSClient::ParameterType readableType(CSClient::ParameterType type) {
    return type == CSClient::TYPE_INT ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
}

}  // namespace

ParameterTables::Lock::Lock(const ParameterTables& lockedTables, Order order) : tables(lockedTables) {
    if (order == Order::FIRST) {
        lockedTables.lockFirst();
    } else {
        lockedTables.lockYielding();
    }
}

void ParameterTables::lockFirst() const {
    if (!parameterMutex.tryLock()) {
        ++waitingFirst;
        parameterMutex.lock();
        --waitingFirst;
    }
}

void ParameterTables::lockYielding() const {
    for (int i = 0; i < kMaxYields && waitingFirst.load(std::memory_order_relaxed) != 0; ++i) {
        nanosleep(&kYield, nullptr);
    }
    parameterMutex.lock();
}

unsigned int ParameterTables::numberOfInputs(bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return static_cast<unsigned int>(inputTable.size(confirmed));
}

unsigned int ParameterTables::numberOfOutputs(bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return static_cast<unsigned int>(outputTable.size(confirmed));
}

int ParameterTables::unconfirmedInputs() const {
    const CSLockGuard lock(parameterMutex);
    return unconfirmedIn(inputTable);
}

int ParameterTables::unconfirmedOutputs() const {
    const CSLockGuard lock(parameterMutex);
    return unconfirmedIn(outputTable);
}

bool ParameterTables::hasInput(const std::string& name, bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return inputTable.all().has(name, confirmed);
}

bool ParameterTables::hasOutput(const std::string& name, bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return outputTable.all().has(name, confirmed);
}

bool ParameterTables::findPublished(const std::string& name, CSClient::Parameter& parameter) const {
    const CSLockGuard lock(parameterMutex);
    const OutputTable::Entry* const found = outputTable.all().find(name);
    if (found == nullptr) {
        return false;
    }
    parameter.name = name;
    // Intended: the caller's type, not the output's, selects how to read the value. Callers rely on it.
    parameter.type = readableType(parameter.type);
    parameter.value = found->value;
    return true;
}

void ParameterTables::appendAllPublished(std::vector<CSClient::Parameter>& parameters) const {
    const CSLockGuard lock(parameterMutex);
    // Appends: the caller's earlier records are kept.
    parameters.reserve(parameters.size() + outputTable.size(false));
    for (const auto& nameAndEntry : outputTable.all()) {
        const OutputTable::Entry& entry = *nameAndEntry.second;
        parameters.push_back({entry.name, entry.value, readableType(entry.type), 0});
    }
}

void ParameterTables::clear() {
    const CSLockGuard lock(parameterMutex);
    inputTable.clear();
    outputTable.clear();
}

bool ParameterTables::deferClose(std::uint32_t connection) {
    if (!parameterMutex.isHeldByThisThread()) {
        return false;
    }
    parameterMutex.assertHeld();
    parameterMutex.defer(connection);
    return true;
}

bool ParameterTables::hasDeferredClose() const {
    if (!parameterMutex.isHeldByThisThread()) {
        return false;
    }
    parameterMutex.assertHeld();
    return parameterMutex.hasDeferred();
}

}  // namespace com_tesk
