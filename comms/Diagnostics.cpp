#include "comms/Diagnostics.h"

#include <charconv>
#include <iostream>
#include <new>
#include <string>

#include "comms/CancellationDisabled.h"

namespace com_tesk::diagnostics {

namespace {

void writeLine(std::ostream& stream, std::initializer_list<std::string_view> pieces) {
    // A cancellation inside the stream would mark it as broken: every later line of the process would be lost.
    const CancellationDisabled untilWritten;
    try {
        std::size_t length = 1;
        for (const std::string_view piece : pieces) {
            length += piece.size();
        }
        std::string line;
        line.reserve(length);
        for (const std::string_view piece : pieces) {
            line += piece;
        }
        line += '\n';
        stream << line << std::flush;
    } catch (const std::bad_alloc&) {
        for (const std::string_view piece : pieces) {
            stream << piece;
        }
        stream << std::endl;
    }
}

}  // namespace

void progress(std::initializer_list<std::string_view> pieces) {
    writeLine(std::cout, pieces);
}

void error(std::initializer_list<std::string_view> pieces) {
    writeLine(std::cerr, pieces);
}

Decimal::Decimal(unsigned int value)
    : length(static_cast<std::size_t>(std::to_chars(digits, digits + kMaxLength, value).ptr - digits)) {}

Decimal::Decimal(int value)
    : length(static_cast<std::size_t>(std::to_chars(digits, digits + kMaxLength, value).ptr - digits)) {}

}  // namespace com_tesk::diagnostics
