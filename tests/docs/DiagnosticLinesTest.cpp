// The page "My parameter does not arrive" lists every line that the library and cspublish print, and no others.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/docs/ManualPage.h"

namespace com_tesk::test {
namespace {

/// Replaces a part of a line that is not constant.
constexpr const char* kPiece = "<>";

/// The line with each <word> made <>.
std::string withoutWords(const std::string& line) {
    static const std::regex word("<[^>]+>");
    return std::regex_replace(line, word, kPiece);
}

/// The line that a call or a statement prints: its constant texts, and <> for each other piece between two separators.
/// Empty without a constant text.
std::string lineAt(const std::string& code, const std::string& separator) {
    static const std::regex token(R"("(?:[^"\\]|\\.)*"|[(){};,]|<<|[^\s"(){};,<]+|<)");
    std::string line;
    std::string piece;
    bool hasText = false;
    int depth = 0;
    const auto endPiece = [&] {
        hasText = hasText || (!piece.empty() && piece != kPiece);
        line += std::exchange(piece, "");
    };
    for (std::sregex_iterator match(code.begin(), code.end(), token), end; match != end && depth >= 0; ++match) {
        const std::string word = match->str();
        depth += word == "(" || word == "{" ? 1 : word == ")" || word == "}" ? -1 : 0;
        if (depth == 0 && word == ";") {
            break;
        }
        if (depth == 0 && word == separator) {
            endPiece();
        } else if (depth == 0 && word.front() == '"' && piece != kPiece) {
            static const std::regex escape(R"(\\(["\\]))");
            const std::string text = std::regex_replace(word.substr(1, word.size() - 2), std::regex(R"(\\n)"), "\n");
            piece += std::regex_replace(text, escape, "$1");
        } else if (depth >= 0 && word != "std::flush") {
            piece = kPiece;
        }
    }
    endPiece();
    return hasText ? withoutWords(trimmed(line)) : "";
}

/// Adds the lines that a source file prints after each match of `beginning`.
void addLinesOf(const std::string& file, const char* beginning, const char* separator, std::set<std::string>& lines) {
    const std::regex pattern(beginning);
    const std::string code = sourceFile(file);
    for (std::sregex_iterator match(code.begin(), code.end(), pattern), end; match != end; ++match) {
        lines.insert(lineAt(match->suffix(), separator));
    }
    lines.erase("");
}

std::set<std::string> linesInTheCode() {
    // The calls that print a line, and those that pass one on.
    static const char call[] = "\\b(?:diagnostics::error|diagnostics::progress|readFailed|report)\\(\\{?";
    std::set<std::string> lines;
    int files = 0;
    for (const std::string folder : {"message/", "comms/", "engine/", "simulator/", "client/"}) {
        for (const auto& entry : std::filesystem::directory_iterator(CSCLIENT_SOURCE_TREE "/" + folder)) {
            addLinesOf(folder + entry.path().filename().string(), call, ",", lines);
            ++files;
        }
    }
    addLinesOf("tools/cspublish.cpp", call, ",", lines);
    addLinesOf("tools/cspublish.cpp", "\\b(?:line|std::cout|std::cerr) << ", "<<", lines);
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

TEST(DiagnosticLines, OnThePageAreThoseInTheCode) {
    const std::set<std::string> inTheCode = linesInTheCode();
    EXPECT_GT(inTheCode.size(), 30U);
    EXPECT_EQ(linesOnThePage(), inTheCode);
}

}  // namespace
}  // namespace com_tesk::test
