#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace com_tesk::host {

/// Generates the ids of one client: 1, 2, 3, without the reserved ids. Inputs and outputs use the same source, so that
/// an id is unique. An id is repeated after 2^32 registrations at the earliest.
class IdSource {
  public:
    IdSource() = default;
    explicit IdSource(std::uint32_t lastId) : last(lastId) {}

    std::uint32_t next();

  private:
    std::uint32_t last = 0;
};

struct Registration {
    std::uint32_t id;
    std::string name;
    bool isInteger;
};

/// The registered inputs, or outputs, of one client.
/// A name keeps its id as long as it is registered. Registering it again returns the same id and sets the new type. A
/// name that was unregistered gets a new id.
class Registrations {
  public:
    const Registration& add(const std::string& name, bool isInteger, IdSource& ids);

    /// @return the removed registration, or nothing when there was none.
    std::optional<Registration> remove(std::uint32_t id);

    /// Returns null when there is none. Valid until the next add() or remove().
    const Registration* byId(std::uint32_t id) const;
    const Registration* byName(const std::string& name) const;

    const std::map<std::uint32_t, Registration>& all() const { return registrationsById; }

  private:
    std::map<std::uint32_t, Registration> registrationsById;
    std::map<std::string, std::uint32_t> idsByName;
};

}  // namespace com_tesk::host
