#pragma once

#include <cstdint>

#include "tools/recording/Entry.h"

namespace com_tesk::recording {

/// The way of a value, seen from the client.
enum class Source : std::uint8_t { RECEIVED, PUBLISHED };

/// Calls `take(source, value)` with each value that passed with the entry. The confirmation of an input has the first
/// value of its name on a connection, so that value counts as received.
template <typename Take>
void forEachValue(const Entry& entry, const Take& take) {
    if (const auto* const update = std::get_if<Update>(&entry.content)) {
        for (const NamedValue& value : update->values) {
            take(Source::RECEIVED, value);
        }
    } else if (const auto* const publication = std::get_if<Publication>(&entry.content)) {
        for (const NamedValue& value : publication->values) {
            take(Source::PUBLISHED, value);
        }
    } else if (const auto* const confirmation = std::get_if<Confirmation>(&entry.content)) {
        if (confirmation->direction == Direction::INPUTS) {
            for (const Parameter& parameter : confirmation->parameters) {
                take(Source::RECEIVED, NamedValue{parameter.name, parameter.id, parameter.value});
            }
        }
    }
}

}  // namespace com_tesk::recording
