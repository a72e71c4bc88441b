#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace com_tesk::host {

/// Ids of one client: 1, 2, 3, without the reserved ones. Inputs and outputs draw from the same source, so that an
/// id names one thing only. An id comes again after 2^32 registrations at the earliest.
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

/// The inputs, or the outputs, that one client has registered.
/// A name has one id for as long as it is registered: registering it again answers with the same id
/// and takes over the new type. After it was unregistered it gets a fresh one.
class Registrations {
  public:
    const Registration& add(const std::string& name, bool isInteger, IdSource& ids);

    /// @return the registration that is no longer there, or nothing when there was none.
    std::optional<Registration> remove(std::uint32_t id);

    /// Valid until the next add() or remove(); null when there is none.
    const Registration* byId(std::uint32_t id) const;
    const Registration* byName(const std::string& name) const;

    const std::map<std::uint32_t, Registration>& all() const { return registrationsById; }

  private:
    std::map<std::uint32_t, Registration> registrationsById;
    std::map<std::string, std::uint32_t> idsByName;
};

}  // namespace com_tesk::host
