#pragma once

#include <cstdint>
#include <string>

namespace com_tesk::mqtt {

/// Which addresses of a name are used.
enum class AddressFamily : std::uint8_t {
    ANY,  ///< The first address in the order of the system.
    IPV4,
    IPV6,
};

/// The families to try for a broker, one after another. The library tries one address of a name only, and a name can
/// have an address at which the broker does not listen: often an IPv6 address, which comes first.
///
/// No threads: the caller has one.
class FamilyCycle {
  public:
    /// A numeric address has one family, so that there is nothing to try.
    explicit FamilyCycle(const std::string& host);

    AddressFamily current() const { return family; }

    /// Begins a cycle, with the family of the last attempt.
    void begin() { failures = 0; }

    /// The attempt has failed.
    /// @return true when the next family is to be tried now; false when the cycle has ended.
    bool fail();

  private:
    const bool isNumeric;
    AddressFamily family = AddressFamily::ANY;
    unsigned failures = 0;
};

}  // namespace com_tesk::mqtt
