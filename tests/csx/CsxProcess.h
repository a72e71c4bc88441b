#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "tests/session/SessionFixtures.h"
#include "tests/support/ChildProcess.h"

/// Tests of csx as a process.
namespace com_tesk::csx_test {

using namespace std::chrono_literals;
using session_test::acceptAndAnswer;
using session_test::answer;
using session_test::HostRecord;
using session_test::Peer;
using session_test::readRequest;
using session_test::Request;
using test::ChildProcess;
using test::kWaitBound;
using test::ScriptedHost;

using Arguments = std::vector<std::string>;
using Json = nlohmann::json;

/// A time within which nothing is expected to happen.
constexpr std::chrono::milliseconds kQuiet{300};

/// A time-out of csx that ends within the test: long enough for the answers that the host of the test gives, also where
/// programs are slow.
const bool kIsSlow = test::kUnderThreadSanitizer || test::isEmulated();
const std::string kTimeOut = kIsSlow ? "6s" : "1s";
const std::string kTimeOutText = kIsSlow ? "6 s" : "1 s";

/// A running csx. It is killed at the end of the test.
class Csx : public ChildProcess {
  public:
    /// Has the path of the program, and no variables that change what it does.
    static Setup setup() {
        Setup result;
        result.path = CSX_PATH;
        result.ownName = "csx";
        result.environment = {"NO_COLOR=", "TERM=xterm"};
        return result;
    }
    static Setup setupWithInput() {
        Setup result = setup();
        result.hasInput = true;
        return result;
    }

    /// Runs it with `-H` and the port of a host of the test.
    Csx(unsigned int port, const Arguments& arguments, const Setup& how = setup())
        : ChildProcess(how, withHost(port, arguments)) {}
    explicit Csx(const Arguments& arguments, const Setup& how = setup()) : ChildProcess(how, arguments) {}

    /// Sends a signal, and expects this exit code.
    void expectEndAfter(int number, int code) {
        signal(number);
        EXPECT_EQ(exitCode(), code) << errText();
    }

  private:
    static Arguments withHost(unsigned int port, const Arguments& arguments) {
        Arguments all{"-H", "127.0.0.1:" + std::to_string(port)};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
};

/// How a csx has ended.
struct Ended {
    int code = 0;
    std::string out;
    std::string err;
};

inline Ended ended(Csx& csx) {
    const int code = csx.exitCode();
    return {code, csx.outText(), csx.errText()};
}

/// Runs csx until it ends.
inline Ended run(unsigned int port, const Arguments& arguments) {
    Csx csx(port, arguments);
    return ended(csx);
}

/// Runs csx until it ends, with this standard input.
inline Ended runWith(const std::string& input, unsigned int port, const Arguments& arguments) {
    Csx csx(port, arguments, Csx::setupWithInput());
    csx.write(input);
    csx.closeInput();
    return ended(csx);
}

/// Returns the lines, each of which must end with a line feed.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        lines.push_back(text.substr(begin, end - begin));
    }
    EXPECT_EQ(begin, text.size()) << "a line without a line feed: " << text.substr(begin);
    return lines;
}

/// Returns the lines without their times, which must be well-formed: "A 1|B 2".
inline std::string valuesOf(const std::string& out) {
    static const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z (.*))");
    std::string values;
    for (const std::string& text : linesOf(out)) {
        std::smatch match;
        EXPECT_TRUE(std::regex_match(text, match, line)) << text;
        values += (values.empty() ? "" : "|") + (match.empty() ? text : match[1].str());
    }
    return values;
}

/// Returns the objects, one a line.
inline std::vector<Json> objectsOf(const std::string& out) {
    std::vector<Json> objects;
    for (const std::string& line : linesOf(out)) {
        objects.push_back(Json::parse(line));
    }
    return objects;
}

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Confirms only those of the requested parameters that are in `names`.
inline void answerOnly(Peer& peer, Request request, const std::vector<std::string>& names, unsigned int firstId = 1) {
    auto& records = request.records;
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [&names](const Request::Record& record) {
                                     return std::find(names.begin(), names.end(), record.name) == names.end();
                                 }),
                  records.end());
    answer(peer, request, firstId);
}

/// Accepts csx's connection, and answers `requests` requests, of which only these names are confirmed.
inline std::unique_ptr<Peer> acceptAndAnswerOnly(ScriptedHost& host, int requests,
                                                 const std::vector<std::string>& names) {
    auto peer = host.accept();
    for (int i = 0; i < requests && peer != nullptr; ++i) {
        const Request request = readRequest(*peer);
        if (request.code == Request::VERSION) {
            answer(*peer, request);
        } else {
            answerOnly(*peer, request, names, request.code == Request::INPUTS ? 101 : 1);
        }
    }
    return peer;
}

}  // namespace com_tesk::csx_test
