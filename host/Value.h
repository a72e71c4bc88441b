#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace com_tesk {

/// One value as it travels: 32 bits and whether they are a signed integer or an IEEE 754 single. A plain value
/// type; the bits are kept as they came, so a NaN's payload and a negative zero survive the host unchanged.
class HostValue {
  public:
    static HostValue integer(std::int32_t number);
    static HostValue real(float number);
    static HostValue fromBits(std::uint32_t bits, bool isInteger) { return {bits, isInteger}; }

    /// Reads what `--set NAME=` takes: `i:` and a decimal 32-bit integer, otherwise a decimal float.
    /// @return nothing when the text is not wholly such a number, or it is out of range.
    static std::optional<HostValue> fromText(std::string_view text);

    bool isInteger() const { return holdsInteger; }
    std::uint32_t bits() const { return rawBits; }
    std::int32_t asInteger() const;  ///< the bits as a signed integer, whatever the kind
    float asReal() const;            ///< the bits as a float, whatever the kind

    /// The number as a standard stream prints it by default: 12.5, -3, nan.
    std::string text() const;

    /// Same kind and same 32 bits: 0.0 and -0.0 differ, a NaN equals itself.
    friend bool operator==(const HostValue& a, const HostValue& b) {
        return a.rawBits == b.rawBits && a.holdsInteger == b.holdsInteger;
    }
    friend bool operator!=(const HostValue& a, const HostValue& b) { return !(a == b); }

  private:
    HostValue(std::uint32_t bits, bool isInteger) : rawBits(bits), holdsInteger(isInteger) {}

    std::uint32_t rawBits;
    bool holdsInteger;
};

}  // namespace com_tesk
