#include "host/Registrations.h"

#include <utility>

#include "host/Layout.h"

namespace com_tesk::host {

std::uint32_t IdSource::next() {
    do {
        ++m_last;
    } while (m_last == layout::kNoId || m_last == layout::kUnconfirmedId);
    return m_last;
}

const Registration& Registrations::add(const std::string& name, bool isInteger, IdSource& ids) {
    const auto known = m_idByName.find(name);
    if (known != m_idByName.end()) {
        Registration& registration = m_byId.at(known->second);
        registration.isInteger = isInteger;
        return registration;
    }
    const std::uint32_t id = ids.next();
    m_idByName.emplace(name, id);
    return m_byId.insert_or_assign(id, Registration{id, name, isInteger}).first->second;
}

std::optional<Registration> Registrations::remove(std::uint32_t id) {
    const auto found = m_byId.find(id);
    if (found == m_byId.end()) {
        return std::nullopt;
    }
    Registration removed = std::move(found->second);
    m_byId.erase(found);
    m_idByName.erase(removed.name);
    return removed;
}

const Registration* Registrations::byId(std::uint32_t id) const {
    const auto found = m_byId.find(id);
    return found == m_byId.end() ? nullptr : &found->second;
}

const Registration* Registrations::byName(const std::string& name) const {
    const auto found = m_idByName.find(name);
    return found == m_idByName.end() ? nullptr : byId(found->second);
}

}  // namespace com_tesk::host
