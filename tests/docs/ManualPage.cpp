#include "tests/docs/ManualPage.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/support/Hex.h"

namespace com_tesk::test {

namespace {

/// The cells of a line such as "| a | b |".
std::vector<std::string> cells(const std::string& line) {
    std::vector<std::string> found;
    std::istringstream stream(line.substr(1));
    for (std::string cell; std::getline(stream, cell, '|');) {
        found.push_back(trimmed(cell));
    }
    return found;
}

bool isTableLine(const std::string& line) {
    return !line.empty() && line.front() == '|';
}

}  // namespace

std::string ManualSection::text() const {
    std::string all;
    for (const std::string& line : lines) {
        all += (all.empty() ? "" : " ") + line;
    }
    return all;
}

std::vector<ManualTable> ManualSection::tables() const {
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

std::vector<std::string> ManualSection::codeBlock() const {
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

std::string ManualSection::hexBytes() const {
    std::string bytes;
    for (const std::string& line : codeBlock()) {
        bytes += line.substr(0, line.find('|'));
    }
    return hexText(hex(bytes));
}

std::string sourceFile(const std::string& name) {
    std::ifstream file(CSCLIENT_SOURCE_TREE "/" + name);
    std::ostringstream content;
    content << file.rdbuf();
    if (!file || content.str().empty()) {
        throw std::runtime_error("cannot be read: " + name);
    }
    return content.str();
}

std::vector<ManualSection> manualPage(const std::string& name) {
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

std::vector<std::string> codeSpans(const std::string& text) {
    static const std::regex quoted("(`+)(.*?)\\1");
    std::vector<std::string> spans;
    for (std::sregex_iterator match(text.begin(), text.end(), quoted), end; match != end; ++match) {
        spans.push_back((*match)[2]);
    }
    return spans;
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \n") - first + 1);
}

std::string withoutBlanks(std::string text) {
    const auto isBlank = [](unsigned char character) { return std::isspace(character) != 0; };
    text.erase(std::remove_if(text.begin(), text.end(), isBlank), text.end());
    return text;
}

}  // namespace com_tesk::test
