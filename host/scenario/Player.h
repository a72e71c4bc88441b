#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/Scenario.h"
#include "host/scenario/FaultLayer.h"
#include "host/scenario/Judge.h"

namespace com_tesk::scenario {

/// Plays a scenario on a host: its values, its timeline, its faults, and its verdict. I/O thread only.
class Player {
  public:
    using OnEnd = std::function<void(ScenarioVerdict)>;

    /// Begins. The references outlive the player.
    /// @param clients  the connections that are there already; they are the first ones of the scenario.
    /// @param atEnd    called once, on the I/O thread or in `interrupt`. The player is idle from then on.
    Player(asio::io_context& ioContext, FaultyHost& faultyHost, Scenario played,
           const std::vector<ClientNumber>& clients, std::size_t maxDelayedBytes, OnEnd atEnd);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;
    ~Player();

    /// Where the messages of the host pass.
    FaultLayer& faults() { return layer; }

    /// An event of the host.
    void note(const HostEvent& event);

    /// The host has begun again with its first values. Sets those of the scenario again, as they are now.
    void giveAgain();

    /// The host stops.
    void interrupt();

  private:
    using Clock = asio::steady_timer::clock_type;

    struct Source {
        ValueSource source;
        std::optional<Duration> next;
    };

    Duration now() const;
    /// Does what is due, and waits for the next.
    void proceed();
    void proceedLater();
    void giveValues(Duration time);
    void takeSteps(Duration time);
    bool isOver(Duration time) const;
    void wait();
    void end(bool isInterrupted);

    asio::io_context& context;
    FaultyHost& host;
    const Scenario scenario;
    const Clock::time_point began = Clock::now();
    std::vector<Source> sources;
    std::vector<Scenario::Step> steps;  ///< By time.
    std::size_t nextStep = 0;
    Judge judge;
    FaultLayer layer;
    asio::steady_timer timer;
    OnEnd onEnd;
    bool isProceeding = false;
    std::shared_ptr<bool> isAlive = std::make_shared<bool>(true);
};

}  // namespace com_tesk::scenario
