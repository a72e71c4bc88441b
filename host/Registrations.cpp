#include "host/Registrations.h"

#include <utility>

#include "host/Layout.h"

namespace com_tesk::host {

std::uint32_t IdSource::next() {
    do {
        ++last;
    } while (last == layout::kNoId || last == layout::kUnconfirmedId);
    return last;
}

const Registration& Registrations::add(const std::string& name, bool isInteger, IdSource& ids) {
    const auto known = idsByName.find(name);
    if (known != idsByName.end()) {
        Registration& registration = registrationsById.at(known->second);
        registration.isInteger = isInteger;
        return registration;
    }
    const std::uint32_t id = ids.next();
    idsByName.emplace(name, id);
    return registrationsById.insert_or_assign(id, Registration{id, name, isInteger}).first->second;
}

std::optional<Registration> Registrations::remove(std::uint32_t id) {
    const auto found = registrationsById.find(id);
    if (found == registrationsById.end()) {
        return std::nullopt;
    }
    Registration removed = std::move(found->second);
    registrationsById.erase(found);
    idsByName.erase(removed.name);
    return removed;
}

const Registration* Registrations::byId(std::uint32_t id) const {
    const auto found = registrationsById.find(id);
    return found == registrationsById.end() ? nullptr : &found->second;
}

const Registration* Registrations::byName(const std::string& name) const {
    const auto found = idsByName.find(name);
    return found == idsByName.end() ? nullptr : byId(found->second);
}

}  // namespace com_tesk::host
