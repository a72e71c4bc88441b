#pragma once

#include <initializer_list>
#include <string_view>

/// Prints diagnostics: single lines on the standard streams, flushed at once.
///
/// Each line is composed first and written with one insertion, so that lines of different threads never mix. Any
/// thread. When there is no memory to compose a line, its pieces are written one by one instead. Nothing is thrown.
/// The caller checks `OPTION_SILENT` or `quiet`.
namespace com_tesk::diagnostics {

/// Prints progress on the standard output stream: the pieces, then a newline.
void progress(std::initializer_list<std::string_view> pieces);

/// Prints an error on the standard error stream: the pieces, then a newline.
void error(std::initializer_list<std::string_view> pieces);

/// A number in decimal, as a piece of a line.
class Decimal {
  public:
    explicit Decimal(unsigned int value);
    explicit Decimal(int value);
    operator std::string_view() const { return {digits, length}; }

  private:
    static constexpr std::size_t kMaxLength = sizeof "-2147483648";
    char digits[kMaxLength] = {};
    std::size_t length;
};

}  // namespace com_tesk::diagnostics
