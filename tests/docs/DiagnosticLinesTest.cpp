// The page "My parameter does not arrive" lists every line that the library and cspublish print: the lines in the code,
// and no others.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/docs/ManualPage.h"

namespace com_tesk::test {
namespace {

/// What stands for a piece of a line that is no constant text.
constexpr const char* kPiece = "<>";

/// The line with each <word> made <>.
std::string withoutWords(const std::string& line) {
    static const std::regex word("<[^>]+>");
    return std::regex_replace(line, word, kPiece);
}

/// The text of a string literal: of several, when they follow one another. Knows the escape \n, and \" .
std::string literalText(const std::string& code) {
    std::string text;
    bool isInside = false;
    for (std::size_t i = 0; i < code.size(); ++i) {
        if (code[i] == '"') {
            isInside = !isInside;
        } else if (isInside && code[i] == '\\') {
            ++i;
            text += code[i] == 'n' ? '\n' : code[i];
        } else if (isInside) {
            text += code[i];
        }
    }
    return text;
}

/// Cuts code at a separator that stands outside of literals and parentheses, up to the end of the statement or of the
/// parentheses around.
std::vector<std::string> piecesOf(const std::string& code, std::size_t begin, const std::string& separator) {
    std::vector<std::string> pieces(1);
    int depth = 0;
    bool isInLiteral = false;
    for (std::size_t i = begin; i < code.size(); ++i) {
        const char character = code[i];
        if (isInLiteral) {
            if (character == '\\') {
                pieces.back() += character;
                ++i;
            } else if (character == '"') {
                isInLiteral = false;
            }
        } else if (character == '"') {
            isInLiteral = true;
        } else if (character == '(' || character == '{') {
            ++depth;
        } else if (character == ')' || character == '}') {
            if (--depth < 0) {
                break;
            }
        } else if (depth == 0 && character == ';') {
            break;
        } else if (depth == 0 && code.compare(i, separator.size(), separator) == 0) {
            pieces.emplace_back();
            i += separator.size() - 1;
            continue;
        }
        pieces.back() += code[i];
    }
    return pieces;
}

/// The line that the pieces make; empty when none of them is constant text.
std::string lineOf(const std::vector<std::string>& pieces) {
    std::string line;
    bool hasText = false;
    for (const std::string& raw : pieces) {
        const std::string piece = trimmed(raw);
        if (piece.empty() || piece == "std::flush") {
            continue;
        }
        if (piece.front() == '"') {
            line += literalText(piece);
            hasText = true;
        } else {
            line += kPiece;
        }
    }
    return hasText ? withoutWords(trimmed(line)) : "";
}

/// The lines that a source file prints: through `diagnostics`, and the functions that pass lines on to it; or, in the
/// publisher, through a stream.
void addLinesOf(const std::string& file, std::set<std::string>& lines) {
    static const std::regex call("\\b(?:diagnostics::error|diagnostics::progress|readFailed|report)\\((\\{?)");
    static const std::regex stream("\\b(?:line|std::cout|std::cerr) << ");
    const std::string code = sourceFile(file);
    for (std::sregex_iterator match(code.begin(), code.end(), call), end; match != end; ++match) {
        const auto begin = static_cast<std::size_t>(match->position() + match->length());
        lines.insert(lineOf(piecesOf(code, begin, ",")));
    }
    if (file == "tools/cspublish.cpp") {
        for (std::sregex_iterator match(code.begin(), code.end(), stream), end; match != end; ++match) {
            const auto begin = static_cast<std::size_t>(match->position() + match->length());
            lines.insert(lineOf(piecesOf(code, begin, "<<")));
        }
    }
    lines.erase("");
}

std::set<std::string> linesInTheCode() {
    std::set<std::string> lines;
    int files = 0;
    for (const char* const folder : {"message", "comms", "engine", "simulator", "client"}) {
        for (const auto& entry : std::filesystem::directory_iterator(CSCLIENT_SOURCE_TREE "/" + std::string(folder))) {
            addLinesOf(std::string(folder) + "/" + entry.path().filename().string(), lines);
            ++files;
        }
    }
    addLinesOf("tools/cspublish.cpp", lines);
    EXPECT_GT(files, 40);
    return lines;
}

/// The lines in the first columns of the page's tables.
std::set<std::string> linesOnThePage() {
    std::set<std::string> lines;
    for (const ManualSection& section : manualPage("not-arriving.md")) {
        for (const ManualTable& table : section.tables()) {
            if (table.columns.at(0) == "Line") {
                for (const std::vector<std::string>& row : table.rows) {
                    const std::vector<std::string> spans = codeSpans(row.at(0));
                    EXPECT_FALSE(spans.empty()) << row.at(0);
                    for (const std::string& span : spans) {
                        lines.insert(withoutWords(trimmed(span)));
                    }
                }
            }
        }
    }
    return lines;
}

TEST(DiagnosticLines, ThoseOnThePageAreThoseInTheCode) {
    const std::set<std::string> inTheCode = linesInTheCode();
    EXPECT_GT(inTheCode.size(), 30U);
    EXPECT_EQ(linesOnThePage(), inTheCode);
}

}  // namespace
}  // namespace com_tesk::test
