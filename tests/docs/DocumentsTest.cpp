// Compares the examples, declarations, limits and diagnostics in the documents with the code.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <regex>
#include <set>
#include <utility>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "host/LoopbackHost.h"
#include "message/FrameLayout.h"
#include "session/Session.h"
#include "simulator/MessageLayout.h"
#include "tests/docs/ManualPage.h"

// Never called: there is no such host.
[[maybe_unused]] static void exampleOfSession() {
    com_tesk::Session::Options options;
    options.host = "192.168.1.20";
    com_tesk::Session session(options);
    const auto altitude = session.output<float>("altitude");
    session.start();
    altitude.set(1234.5F);
    session.stop(std::chrono::seconds(1));
}

// As above.
[[maybe_unused]] static void example() {
    com_tesk::SimClient client(1, com_tesk::CSClient::OPTION_AUTO_RECONNECT);
    client.changeCommsInterface(new com_tesk::CSCommsInterfaceTCPBuffered);
    client.registerOutputParameter({"altitude", com_tesk::CSClient::TYPE_FLOAT});
    client.open("192.168.1.20", 55580, nullptr);
    if (client.waitForOutputsToBeRegistered(5)) {
        client.publishParameter({"altitude", {1234.5F}, com_tesk::CSClient::TYPE_FLOAT});
    }
    client.close();
}

namespace com_tesk::test {
namespace {

const std::string kThisFile = "tests/docs/DocumentsTest.cpp";

TEST(HostExample, StoresTheValueThatTheClientPublishes) {
    LoopbackHost host({});  // On 127.0.0.1, on a port that the system picks.
    SimClient client(1, CSClient::OPTION_SILENT);
    client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
    client.open("127.0.0.1", host.port(), nullptr);
    client.waitForOutputsToBeRegistered(5);
    client.publishParameter({"ALT", {12.5F}, CSClient::TYPE_FLOAT});
    const bool isStored = host.waitForValue("ALT", HostValue::real(12.5F), std::chrono::seconds(5));

    EXPECT_TRUE(isStored);
}

/// The lines of the only indented block in the header's comment, without blanks.
std::string exampleInTheHeader() {
    const std::string indented = "///     ";
    std::istringstream lines(sourceFile("host/LoopbackHost.h"));
    std::string example;
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, indented.size(), indented) == 0) {
            example += line.substr(indented.size());
        }
    }
    return withoutBlanks(example);
}

TEST(HostExample, InTheHeaderConsistsOfTheLinesOfThisTest) {
    const std::string example = exampleInTheHeader();
    EXPECT_GT(example.size(), 200U);
    EXPECT_NE(withoutBlanks(sourceFile(kThisFile)).find("{" + example + "EXPECT_TRUE"), std::string::npos) << example;
}

// The example of the page "Rehearsing a bad host".
TEST(ScenarioExample, PublishesAgainAfterAReset) {
    using namespace std::chrono_literals;
    using namespace com_tesk::scenario;
    com_tesk::LoopbackHost host({});  // On 127.0.0.1, on a port that the system picks.
    com_tesk::Scenario scenario("comes back after a reset");
    scenario.give("gauge", Ramp{0, 1000, 10s, 50})
        .when(sending(Message::UPDATE).of("gauge").nthTime(3), Split{{1, 33}, 20ms})
        .at(300ms, Drop{/*isReset=*/true})
        .expect(publishes("switch", 1).in(20s))
        .expect(publishes("switch", 1).in(20s).afterAction("drop"))
        .expect(never(usesUnknownId()));
    auto verdict = host.play(scenario);

    com_tesk::Session::Options options;
    options.port = host.port();
    options.retry = 50ms;
    com_tesk::Session session(options);
    session.input<float>("gauge");
    session.output<bool>("switch").set(true);
    session.start();
    const com_tesk::ScenarioVerdict result = verdict.get();
    EXPECT_TRUE(result.hasPassed()) << result.text();
}

TEST(ScenarioExample, OnThePageIsTheTestAbove) {
    for (const ManualSection& section : manualPage("rehearsing.md")) {
        if (section.heading == "As a library") {
            std::string example;
            for (const std::string& line : section.codeBlock()) {
                example += line;
            }
            EXPECT_GT(example.size(), 500U);
            EXPECT_NE(withoutBlanks(sourceFile(kThisFile)).find(withoutBlanks(example)), std::string::npos) << example;
            return;
        }
    }
    FAIL() << "no such section";
}

/// The literal block of a section of a manual page, without blanks.
std::string blockUnder(const std::string& section, const std::string& pageFile) {
    const std::string page = sourceFile(pageFile);
    const std::string beginning = ".Bd -literal\n";
    const std::size_t begin = page.find(beginning, page.find("\n.Sh " + section + "\n"));
    const std::size_t end = page.find("\n.Ed", begin);
    EXPECT_NE(end, std::string::npos) << section;
    return withoutBlanks(page.substr(begin + beginning.size(), end - begin - beginning.size()));
}

/// A manual page of section 3, the function in this file that compiles its example, and the headers of its synopsis.
struct LibraryPage {
    const char* file;
    const char* example;
    std::vector<std::string> headers;
};

const std::vector<LibraryPage>& libraryPages() {
    static const std::vector<LibraryPage> pages{
        {"man/csclient.3", "example", {"client/CSClient.h", "client/SimClient.h"}},
        {"man/csclient-session.3",
         "exampleOfSession",
         {"session/Session.h", "session/Output.h", "session/Input.h", "session/Link.h", "session/Health.h"}},
    };
    return pages;
}

TEST(ManPage, HasTheExampleThatIsCompiledHere) {
    for (const LibraryPage& page : libraryPages()) {
        const std::string example = blockUnder("EXAMPLES", page.file);
        EXPECT_GT(example.size(), 200U) << page.file;
        const std::string function = std::string("void") + page.example + "(){" + example + "}";
        EXPECT_NE(withoutBlanks(sourceFile(kThisFile)).find(function), std::string::npos) << page.file << example;
    }
}

TEST(ManPage, HasASynopsisOfDeclarationsInTheHeaders) {
    for (const LibraryPage& page : libraryPages()) {
        std::string headers;
        for (const std::string& header : page.headers) {
            headers += withoutBlanks(sourceFile("include/" + header));
        }
        std::istringstream synopsis(blockUnder("SYNOPSIS", page.file));
        int declarations = 0;
        for (std::string declaration; std::getline(synopsis, declaration, ';'); ++declarations) {
            EXPECT_NE(headers.find(declaration + ";"), std::string::npos) << page.file << ": " << declaration;
        }
        EXPECT_GT(declarations, 8) << page.file;
    }
}

TEST(Limits, AreInTheCodeWhereThePageSays) {
    int limits = 0;
    for (const ManualSection& section : manualPage("limits.md")) {
        for (const ManualTable& table : section.tables()) {
            ASSERT_EQ(table.columns.back(), "In code") << section.heading;
            for (const std::vector<std::string>& row : table.rows) {
                const std::vector<std::string> spans = codeSpans(row.back());
                ASSERT_FALSE(spans.empty()) << row.front();
                ASSERT_EQ(spans.size() % 2, 0U) << row.front() << ": a file and the words in it, or several of both";
                for (std::size_t i = 0; i < spans.size(); i += 2) {
                    EXPECT_NE(sourceFile(spans[i]).find(spans[i + 1]), std::string::npos)
                        << row.front() << ": " << spans[i] << " does not hold: " << spans[i + 1];
                }
                ++limits;
            }
        }
    }
    EXPECT_GT(limits, 30);
}

TEST(Limits, NameTheMaximumOfInputsInOneConfirmation) {
    const std::size_t largestFrame = CSCommsInterfaceTCPBuffered::Bounds().largestFrame;
    const std::size_t records = largestFrame - frame::kHeaderLength - layout::kRecordsOffset;
    EXPECT_EQ(records / layout::input_confirmation::kRecordLength, 322'637U);
    EXPECT_NE(sourceFile("docs/manual/limits.md").find("| 322,637 with the default largest frame |"),
              std::string::npos);
}

/// The texts that match the only group of the pattern in a file of the source tree.
std::set<std::string> matchesIn(const std::string& file, const char* pattern) {
    const std::regex expression(pattern);
    const std::string content = sourceFile(file);
    std::set<std::string> found;
    for (std::sregex_iterator match(content.begin(), content.end(), expression), end; match != end; ++match) {
        found.insert((*match)[1]);
    }
    return found;
}

/// The texts in backquotes in the first column of the table whose first column has this title.
std::set<std::string> firstColumn(const std::string& page, const std::string& title) {
    std::set<std::string> found;
    for (const ManualSection& section : manualPage(page)) {
        for (const ManualTable& table : section.tables()) {
            for (const std::vector<std::string>& row : table.rows) {
                if (table.columns.front() == title) {
                    const std::vector<std::string> spans = codeSpans(row.front());
                    found.insert(spans.begin(), spans.end());
                    if (spans.empty()) {
                        found.insert(row.front());
                    }
                }
            }
        }
    }
    return found;
}

TEST(Doctor, NamesSectionsOfTheManualThatExist) {
    const std::string code = "tools/csx/Diagnosis.cpp";
    std::set<std::string> headings;
    bool isDoctors = false;
    for (const ManualSection& section : manualPage("shell.md")) {
        if (isDoctors && section.heading == "Recipes") {
            break;
        }
        if (isDoctors) {
            headings.insert(section.heading);
        }
        isDoctors = isDoctors || section.heading == "What the doctor says";
    }
    EXPECT_GT(headings.size(), 5U);
    EXPECT_EQ(headings, matchesIn(code, R"re(shell\.md, \\"([^\\]+)\\")re"));

    std::string numbers;
    for (const ManualSection& section : manualPage("not-arriving.md")) {
        numbers += section.heading.substr(0, 2);
    }
    for (const std::string& number : matchesIn(code, R"re(not-arriving\.md, section ([0-9]+)\.)re")) {
        EXPECT_NE(numbers.find(number + "."), std::string::npos) << number;
    }
}

TEST(Shells, HaveTheExitCodesOnThePage) {
    const std::set<std::string> codes = firstColumn("shell.md", "Code");
    for (const std::string& code : matchesIn("tools/csx/ExitCode.h", "= ([0-9]+),")) {
        EXPECT_TRUE(codes.count(code) == 1 || std::stoi(code) >= 100) << code;
    }
    EXPECT_EQ(codes.size(), 6U);
    EXPECT_EQ(codes, matchesIn("tools/csx/CommandLine.cpp", R"re("  ([0-9]+(?: to [0-9]+)?) )re"));
}

TEST(HostEvents, OnThePagesAreThoseInTheCode) {
    std::set<std::string> kinds;
    for (std::string kind : matchesIn("host/HostEvent.h", "\n        ([A-Z_]+), +///<")) {
        std::transform(kind.begin(), kind.end(), kind.begin(), [](unsigned char c) { return std::tolower(c); });
        kinds.insert(kind);
    }
    EXPECT_GT(kinds.size(), 15U);
    EXPECT_EQ(firstColumn("shell.md", "Event"), kinds);
    const std::set<std::string> onThePage = matchesIn("man/cshost.1", "\n\\.Ql ([a-z_]+)(?=[ \n])");
    for (const std::string& kind : kinds) {
        EXPECT_EQ(onThePage.count(kind), 1U) << kind;
    }
}

/// The names of the actions in the table of the page, each with the letters of the places where it is permitted.
std::set<std::string> actionsOnThePage() {
    std::set<std::string> actions;
    for (const ManualSection& section : manualPage("rehearsing.md")) {
        for (const ManualTable& table : section.tables()) {
            if (table.columns.front() == "Action") {
                for (const std::vector<std::string>& row : table.rows) {
                    const std::string written = codeSpans(row.front()).at(0);
                    actions.insert(written.substr(0, written.find(':')) + ' ' + row.at(1));
                }
            }
        }
    }
    return actions;
}

TEST(Scenarios, HaveTheActionsOnThePage) {
    std::set<std::string> actions;
    for (const std::string& entry : matchesIn("host/scenario/Actions.cpp", R"re(\n    \{("[a-z-]+", [a-z, ]+)\})re")) {
        std::istringstream words(std::regex_replace(entry, std::regex("[\",]"), ""));
        std::string action;
        words >> action;
        for (const char* const letter : {" S", " R", " A", " T"}) {
            std::string isPermitted;
            words >> isPermitted;
            action += isPermitted == "true" ? letter : "";
        }
        actions.insert(action);
    }
    EXPECT_GT(actions.size(), 20U);
    EXPECT_EQ(actionsOnThePage(), actions);
}

TEST(Scenarios, AreExplainedOnThePage) {
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(CSCLIENT_SOURCE_TREE "/examples/scenarios")) {
        files.insert(entry.path().filename().string());
    }
    EXPECT_EQ(files.size(), 12U);
    std::set<std::string> headings;
    for (const ManualSection& section : manualPage("rehearsing.md")) {
        if (section.heading.find(".yaml") != std::string::npos) {
            headings.insert(section.heading);
        }
    }
    EXPECT_EQ(headings, files);
}

TEST(Scenarios, HaveTheExitCodesOnThePage) {
    // The first table of the help is that of `cshost` itself, whose codes are among those of `cshost run`.
    EXPECT_EQ(firstColumn("rehearsing.md", "Code"),
              matchesIn("tools/cshost.cpp", R"re("  ([0-9]+(?: to [0-9]+)?) )re"));
}

// The page "My parameter does not arrive" lists every line that the library and cspublish print, and no others.

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
