#include "tests/support/OpenEngine.h"

#include <cstdio>

#include "comms/CSLockGuard.h"
#include "tests/support/Parameters.h"

namespace com_tesk::test {

namespace {

std::string hexDigits(std::uint32_t bits) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned int>(bits));
    return digits;
}

std::string status(std::uint32_t serverId) {
    return serverId == 0xFFFFF ? "waiting" : "id " + std::to_string(serverId);
}

/// The name of an entry must be its key in the table.
std::string title(std::string_view key, const std::string& name) {
    return key == name ? name : "KEY " + std::string(key) + " NAME " + name;
}

}  // namespace

std::vector<std::string> OpenEngine::inputTable() const {
    const CSLockGuard lock(parameterMutex());
    std::vector<std::string> lines;
    for (const auto& [key, entry] : inputsByName()) {
        lines.push_back(title(key, entry->name) + " type " + std::to_string(entry->type) + " mode " +
                        std::to_string(entry->subscriptionMode) + " " + status(entry->serverId));
    }
    return lines;
}

std::vector<std::string> OpenEngine::outputTable() const {
    const CSLockGuard lock(parameterMutex());
    std::vector<std::string> lines;
    for (const auto& [key, entry] : outputsByName()) {
        lines.push_back(title(key, entry->name) + " type " + std::to_string(entry->type) + " " +
                        status(entry->serverId) + (entry->published ? " published " : " ") +
                        hexDigits(bitsOf(entry->value)));
    }
    return lines;
}

std::string OpenEngine::inputIds() const {
    const CSLockGuard lock(parameterMutex());
    std::string ids;
    for (const auto& [id, name] : inputNamesById()) {
        ids += (ids.empty() ? "" : " ") + std::to_string(id) + "=" + name;
    }
    return ids;
}

std::string OpenEngine::outputIds() const {
    const CSLockGuard lock(parameterMutex());
    std::string ids;
    for (const auto& idAndEntry : outputsById()) {
        std::string_view name = "gone";
        for (const auto& [key, entry] : outputsByName()) {
            if (entry == idAndEntry.second) {
                name = key;
            }
        }
        ids += (ids.empty() ? "" : " ") + std::to_string(idAndEntry.first) + "=" + std::string(name);
    }
    return ids;
}

}  // namespace com_tesk::test
