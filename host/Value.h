#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace com_tesk {

/// A value as transmitted: 32 bits, and whether they are a signed integer or an IEEE 754 single. The bits are kept as
/// received, so the payload of a NaN and a negative zero stay unchanged.
class HostValue {
  public:
    /// Makes a value of the number or of its bits.
    /// @{
    static HostValue integer(std::int32_t number);
    static HostValue real(float number);
    static HostValue fromBits(std::uint32_t bits, bool isInteger) { return {bits, isInteger}; }
    /// @}

    /// Reads a value of `--set NAME=`: `i:` and a decimal 32-bit integer, otherwise a decimal float.
    /// @return nothing when any part of the text is not such a number, or the number is out of range.
    static std::optional<HostValue> fromText(std::string_view text);

    bool isInteger() const { return holdsInteger; }  ///< True for an integer, false for a float.
    std::uint32_t bits() const { return rawBits; }   ///< The 32 bits as transmitted.
    std::int32_t asInteger() const;                  ///< The bits as a signed integer, for both kinds.
    float asReal() const;                            ///< The bits as a float, for both kinds.

    /// Returns the number as a standard stream prints it by default: 12.5, -3, nan.
    std::string text() const;

    /// True for the same kind and the same 32 bits: 0.0 and -0.0 differ, and a NaN equals itself.
    friend bool operator==(const HostValue& a, const HostValue& b) {
        return a.rawBits == b.rawBits && a.holdsInteger == b.holdsInteger;
    }
    /// The opposite.
    friend bool operator!=(const HostValue& a, const HostValue& b) { return !(a == b); }

  private:
    HostValue(std::uint32_t bits, bool isInteger) : rawBits(bits), holdsInteger(isInteger) {}

    std::uint32_t rawBits;
    bool holdsInteger;
};

}  // namespace com_tesk
