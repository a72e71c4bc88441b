#pragma once

#include <string>

/// Lines of recordings, for tests.
namespace com_tesk::replay_test {

/// The first line of a log, and an empty state.
inline const std::string kHeader = R"({"t":0.0,"type":"recording","format":1,"recorder":"csx 1","run":"r","part":1,)"
                                   R"("started":"2026-11-21T22:04:05.123456Z","mode":"proxy","host":"127.0.0.1:55580"})"
                                   "\n";

/// A client that registers the float input A with the value 1 and the float output B, at the time 0.
inline const std::string kRegistered =
    R"({"t":0,"type":"connected","connection":1,"client":"127.0.0.1:4"})"
    "\n"
    R"({"t":0,"type":"register-inputs","connection":1,"parameters":[{"name":"A","type":"float"}]})"
    "\n"
    R"({"t":0,"type":"register-outputs","connection":1,"parameters":[{"name":"B","type":"float"}]})"
    "\n"
    R"({"t":0,"type":"inputs-confirmed","connection":1,"parameters":[{"name":"A","type":"float","id":1,"value":1.0}]})"
    "\n";

inline std::string entry(const std::string& seconds, const std::string& rest) {
    return "{\"t\":" + seconds + R"(,"connection":1,"type":)" + rest + "}\n";
}
inline std::string update(const std::string& seconds, const std::string& values) {
    return entry(seconds, R"("update","values":[)" + values + ']');
}
inline std::string publication(const std::string& seconds, const std::string& values) {
    return entry(seconds, R"("publish","values":[)" + values + ']');
}

}  // namespace com_tesk::replay_test
