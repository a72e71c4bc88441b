#pragma once

#include <string>

/// Recordings written by hand.
namespace com_tesk::recording_test {

inline std::string headerLine(const std::string& host = "10.0.0.1:55580") {
    return R"({"t":0.000000,"type":"recording","format":1,"recorder":"csx 1","run":"r1","part":1,)"
           R"("started":"2026-11-21T22:04:05.123456Z","mode":"proxy","host":")" +
           host + "\"}\n";
}

inline std::string entryLine(const std::string& seconds, const std::string& rest) {
    return R"({"t":)" + seconds + R"(,"type":)" + rest + "}\n";
}

inline std::string updateLine(const std::string& seconds, const std::string& values, int connection = 1) {
    return entryLine(seconds,
                     R"("update","connection":)" + std::to_string(connection) + R"(,"values":[)" + values + "]");
}

inline std::string publishLine(const std::string& seconds, const std::string& values, int connection = 1) {
    return entryLine(seconds,
                     R"("publish","connection":)" + std::to_string(connection) + R"(,"values":[)" + values + "]");
}

/// A client registers the inputs altitude and gear and the output button, which it publishes as 1.5.
inline std::string connectionLines(int second, int connection) {
    const std::string at = std::to_string(second) + ".00000";
    const std::string number = R"(","connection":)" + std::to_string(connection) + ',';
    return entryLine(at + '0',
                     R"("connected)" + number + R"("client":"10.0.0.2:4000)" + std::to_string(connection) + '"') +
           entryLine(at + '1', R"("version-request)" + number + R"("simulator-id":7)") +
           entryLine(at + '2',
                     R"("version)" + number + R"("text":"host 1.2","protocol":9,"simulator-id":7,"status":1)") +
           entryLine(at + '3',
                     R"("register-inputs)" + number +
                         R"("parameters":[{"name":"altitude","type":"float"},{"name":"gear","type":"integer"}])") +
           entryLine(at + '4', R"("inputs-confirmed)" + number +
                                   R"("parameters":[{"name":"altitude","type":"float","id":5,"value":0.0},)"
                                   R"({"name":"gear","type":"integer","id":6,"value":1}])") +
           entryLine(at + '5', R"("register-outputs)" + number + R"("parameters":[{"name":"button","type":"float"}])") +
           entryLine(at + '6',
                     R"("outputs-confirmed)" + number + R"("parameters":[{"name":"button","type":"float","id":7}])") +
           publishLine(at + '7', R"(["button",1.5])", connection);
}

inline std::string lostLine(const std::string& seconds, int connection, const std::string& side,
                            const std::string& why) {
    return entryLine(seconds, R"("lost","connection":)" + std::to_string(connection) + R"(,"side":")" + side +
                                  R"(","why":")" + why + '"');
}

/// Four connections: the host closes the first, resets the second, and is away for a while after the third.
inline std::string threeLosses() {
    return headerLine() + connectionLines(1, 1) + updateLine("1.500000", R"(["altitude",12.5],["gear",2,"integer"])") +
           lostLine("2.000000", 1, "host", "closed") + connectionLines(3, 2) +
           updateLine("3.500000", R"(["altitude",13.1])", 2) +
           lostLine("4.000000", 2, "host", "Connection reset by peer") + connectionLines(5, 3) +
           lostLine("6.000000", 3, "host", "closed") + lostLine("6.250000", 4, "host", "Connection refused") +
           lostLine("6.500000", 5, "host", "Connection refused") + connectionLines(7, 6) +
           publishLine("7.500000", R"(["button",0.1])", 6) + lostLine("8.000000", 6, "client", "closed") +
           entryLine("8.500000", R"("end")");
}

}  // namespace com_tesk::recording_test
