#include "engine/OutputTable.h"

#include <iterator>

namespace com_tesk {

namespace {

/// The maximum number of records in a publish call whose outputs are kept for the next call.
constexpr unsigned int kMaxKept = 4'096;

}  // namespace

bool OutputTable::insert(const CSClient::OutputDef* definitions, unsigned int count, bool silent,
                         std::vector<Entry*>& batch) {
    return outputsByName.insert(definitions, count, silent, checks::reportInvalidOutputType, batch);
}

void OutputTable::erase(const Entries::Unregistration& found) {
    erasePublished();
    outputsByName.erase(found, [this](std::uint32_t id) { outputsById.erase(id); });
}

OutputTable::Entry* OutputTable::confirm(Entries::Place& hint, std::uint32_t id, std::string_view name) {
    const auto found = outputsByName.findNear(hint, name);
    if (found == outputsByName.end()) {
        return nullptr;
    }
    hint = std::next(found);
    Entry& entry = *found->second;
    outputsById.insert_or_assign(id, &entry);
    entry.serverId = id;
    return &entry;
}

std::vector<OutputTable::Entry*>& OutputTable::batchFor(unsigned int count, std::vector<Entry*>& longBatch) {
    return count > kMaxKept ? longBatch : publishedBatch;
}

bool OutputTable::storeValues(const CSClient::Parameter* parameters, unsigned int count, bool silent,
                              std::vector<Entry*>& batch) {
    // All or nothing, unlike registration: everything is checked before anything is stored. Applications usually
    // publish the same outputs each cycle, so a call first tries the outputs of the previous call.
    batch.resize(count);
    for (unsigned int i = 0; i < count; ++i) {
        const CSClient::Parameter& parameter = parameters[i];
        Entry*& entry = batch[i];
        void (*report)(const std::string&) = nullptr;
        if (parameter.type == CSClient::TYPE_UNDEFINED) {
            report = checks::reportInvalidSubscriptionType;
        } else if (entry != nullptr && entry->name == parameter.name) {
            continue;
        } else if (checks::isTooLong(parameter.name)) {
            report = checks::reportTooLong;
        } else {
            Entry* const found = findPublished(parameter.name);
            if (found != nullptr) {
                entry = found;
                continue;
            }
            report = checks::reportUnknown;
        }
        if (!silent) {
            report(parameter.name);
        }
        return false;
    }

    for (unsigned int i = 0; i < count; ++i) {
        batch[i]->value = parameters[i].value;
        batch[i]->published = true;
    }
    return true;
}

OutputTable::Entry* OutputTable::findPublished(const std::string& name) {
    Entry* const known = publishedIndex.find(name);
    if (known != nullptr) {
        return known;
    }
    Entry* const found = outputsByName.find(name);
    if (found != nullptr) {
        publishedIndex.add(*found);
    }
    return found;
}

void OutputTable::clear() {
    erasePublished();
    outputsById.clear();
    outputsByName.clear();
}

void OutputTable::erasePublished() {
    publishedIndex.clear();
    publishedBatch.clear();
}

}  // namespace com_tesk
