#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>

#include "session/Session.h"
#include "tools/replay/Player.h"
#include "tools/replay/Selection.h"

namespace com_tesk::replay {

/// Plays the client's side of a recording for a host.
class ClientReplay {
  public:
    /// The references outlive this object.
    ClientReplay(const Options& replayOptions, recording::Recording& source, Sleep sleepFunction,
                 std::function<void(const std::string&)> sayFunction);

    /// Plays it, on the calling thread.
    Result run();

    const Player& played() const { return player; }

  private:
    using AnyOutput = std::variant<Output<float>, Output<std::int32_t>>;
    using AnyInput = std::variant<Input<float>, Input<std::int32_t>>;

    void open();
    void close();
    Result connect();
    void playAll();
    void play(const recording::Entry& entry);
    void declare(recording::Direction direction, const std::string& name, bool isInteger);
    void withdraw(recording::Direction direction, const std::string& name);
    void publish(const Values& values);

    const Options& options;
    const Selection selection;
    recording::Recording& recording;
    const std::function<void(const std::string&)> say;
    const Sleep sleep;
    const Plan plan;
    Player player;
    std::map<Plan::Registered, bool> registered;  ///< By the recorded client; true for an integer.
    std::uint64_t refused = 0;                    ///< Values that did not leave, and names that cannot be registered.

    std::optional<Session> session;  ///< Nothing while the recorded client has closed its connection.
    std::map<std::string, AnyOutput> outputs;
    std::map<std::string, AnyInput> inputs;
};

}  // namespace com_tesk::replay
