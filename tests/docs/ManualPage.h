#pragma once

#include <algorithm>
#include <cctype>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Hex.h"

namespace com_tesk::test {

/// Returns the text without blanks and newlines at its ends.
inline std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \n") - first + 1);
}

/// Returns the text without any blanks and newlines.
inline std::string withoutBlanks(std::string text) {
    const auto isBlank = [](unsigned char character) { return std::isspace(character) != 0; };
    text.erase(std::remove_if(text.begin(), text.end(), isBlank), text.end());
    return text;
}

/// Returns the texts between backquotes: between one and one, or between two and two.
inline std::vector<std::string> codeSpans(const std::string& text) {
    static const std::regex quoted("(`+)(.*?)\\1");
    std::vector<std::string> spans;
    for (std::sregex_iterator match(text.begin(), text.end(), quoted), end; match != end; ++match) {
        spans.push_back((*match)[2]);
    }
    return spans;
}

/// A Markdown table, without the blanks around the texts of its cells.
struct ManualTable {
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;
};

/// A heading of a page, and the lines under it up to the next heading.
struct ManualSection {
    std::string heading;
    std::vector<std::string> lines;

    /// Returns the lines, with a blank in between.
    std::string text() const {
        std::string all;
        for (const std::string& line : lines) {
            all += (all.empty() ? "" : " ") + line;
        }
        return all;
    }

    std::vector<ManualTable> tables() const {
        std::vector<ManualTable> found;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (!isTableLine(lines[i])) {
                continue;
            }
            ManualTable table;
            table.columns = cells(lines[i]);
            for (i += 2; i < lines.size() && isTableLine(lines[i]); ++i) {  // After the line of dashes.
                table.rows.push_back(cells(lines[i]));
                if (table.rows.back().size() != table.columns.size()) {
                    throw std::runtime_error("a row with more or fewer cells than columns: " + lines[i]);
                }
            }
            found.push_back(table);
        }
        return found;
    }

    /// Returns the lines of the only code block; throws when there is none, or more.
    std::vector<std::string> codeBlock() const {
        std::vector<std::string> block;
        int fences = 0;
        for (const std::string& line : lines) {
            if (line.compare(0, 3, "```") == 0) {
                ++fences;
            } else if (fences == 1) {
                block.push_back(line);
            }
        }
        if (fences != 2) {
            throw std::runtime_error("not one code block under: " + heading);
        }
        return block;
    }

    /// Returns the hex text of the code block: the part of each line before the "|".
    std::string hexBytes() const {
        std::string bytes;
        for (const std::string& line : codeBlock()) {
            bytes += line.substr(0, line.find('|'));
        }
        return hexText(hex(bytes));
    }

  private:
    /// Returns the cells of a line such as "| a | b |".
    static std::vector<std::string> cells(const std::string& line) {
        std::vector<std::string> found;
        std::istringstream stream(line.substr(1));
        for (std::string cell; std::getline(stream, cell, '|');) {
            found.push_back(trimmed(cell));
        }
        return found;
    }

    static bool isTableLine(const std::string& line) { return !line.empty() && line.front() == '|'; }
};

/// Returns a file of the source tree, whole. Throws when it cannot be read.
inline std::string sourceFile(const std::string& name) {
    std::ifstream file(CSCLIENT_SOURCE_TREE "/" + name);
    std::ostringstream content;
    content << file.rdbuf();
    if (!file || content.str().empty()) {
        throw std::runtime_error("cannot be read: " + name);
    }
    return content.str();
}

/// Returns the sections of a page under docs/manual/.
inline std::vector<ManualSection> manualPage(const std::string& name) {
    std::istringstream page(sourceFile("docs/manual/" + name));
    std::vector<ManualSection> sections;
    bool isInCode = false;
    for (std::string line; std::getline(page, line);) {
        if (line.compare(0, 3, "```") == 0) {
            isInCode = !isInCode;
        }
        if (!isInCode && !line.empty() && line.front() == '#') {
            sections.push_back({line.substr(line.find(' ') + 1), {}});
        } else if (!sections.empty()) {
            sections.back().lines.push_back(line);
        }
    }
    return sections;
}

}  // namespace com_tesk::test
