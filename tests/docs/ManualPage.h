#pragma once

#include <string>
#include <vector>

namespace com_tesk::test {

/// A Markdown table: what stands in its cells, without the blanks around.
struct ManualTable {
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;
};

/// A heading of a page, and what stands under it up to the next heading.
struct ManualSection {
    std::string heading;
    std::vector<std::string> lines;

    /// The lines, with a blank in between.
    std::string text() const;
    std::vector<ManualTable> tables() const;
    /// The lines of the only code block; throws when there is none, or more.
    std::vector<std::string> codeBlock() const;
    /// The hex text of the code block: the part of each line before the "|".
    std::string hexBytes() const;
};

/// A file of the source tree, whole. Throws when it cannot be read.
std::string sourceFile(const std::string& name);

/// The sections of a page under docs/manual/.
std::vector<ManualSection> manualPage(const std::string& name);

/// The text without blanks and newlines at its ends.
std::string trimmed(const std::string& text);

/// The text without any blanks and newlines.
std::string withoutBlanks(std::string text);

/// What stands between backquotes: between one and one, or between two and two.
std::vector<std::string> codeSpans(const std::string& text);

}  // namespace com_tesk::test
