#include "tools/csmqtt/HostLink.h"

#include <utility>

#include "tools/ParameterNames.h"

namespace com_tesk::mqtt {

namespace {

service::Level levelOf(Session::Level level) {
    switch (level) {
        case Session::Level::DETAIL:
        case Session::Level::INFO:
            return service::Level::DEBUG;
        case Session::Level::WARNING:
            break;
        case Session::Level::FAULT:
            return service::Level::ERROR;
    }
    return service::Level::WARNING;
}

}  // namespace

HostLink::HostLink(const Config& bridgeConfig, SharedOutbox& sharedOutbox, service::Log& serviceLog,
                   std::function<void(HostState)> onStateChange)
    : config(bridgeConfig),
      outbox(sharedOutbox),
      log(serviceLog),
      onState(std::move(onStateChange)),
      isStored(bridgeConfig.toMqtt.size()),
      last(bridgeConfig.toMqtt.size()),
      session(optionsOf(bridgeConfig, serviceLog)) {
    for (std::size_t index = 0; index < config.toMqtt.size(); ++index) {
        const bool isInteger = config.toMqtt[index].type == NumberType::INTEGER;
        inputs.push_back(isInteger ? declareInput<std::int32_t>(index) : declareInput<float>(index));
    }
    for (const FromMqtt& target : config.fromMqtt) {
        if (target.type == NumberType::INTEGER) {
            outputs.emplace_back(session.output<std::int32_t>(target.name));
        } else {
            outputs.emplace_back(session.output<float>(target.name));
        }
    }
    session.onLink([this](const LinkEvent& event) { noteLink(event); });
}

Session::Options HostLink::optionsOf(const Config& config, service::Log& log) {
    Session::Options options;
    options.host = config.host.host;
    options.port = config.host.port;
    options.simulatorId = config.simulatorId;
    options.heartbeat = config.heartbeat;
    options.log = [&log](Session::Level level, std::string_view text) {
        log.writeRarely(levelOf(level), "session " + std::string(text), "host: " + std::string(text));
    };
    return options;
}

template <typename T>
HostLink::AnyInput HostLink::declareInput(std::size_t index) {
    const Input<T> input = session.input<T>(config.toMqtt[index].name);
    input.onChange([this, index](const Reading<T>& reading) { arrive(index, reading); });
    return input;
}

template <typename T>
void HostLink::arrive(std::size_t index, const Reading<T>& reading) {
    if (reading.quality == Quality::GOOD && (!isStored[index] || reading.number > last[index])) {
        newValues.push_back({index, static_cast<double>(reading.value), reading.number, reading.received});
        isStored[index] = true;
        last[index] = reading.number;
    }
}

void HostLink::start() {
    stateSince = Clock::now();
    session.start();
}

bool HostLink::dispatch() {
    session.dispatch();
    return storeNew();
}

bool HostLink::storeNew() {
    if (newValues.empty()) {
        return false;
    }
    outbox.change([this](Outbox& shared) {
        for (const NewValue& each : newValues) {
            shared.values.store(each.index, each.value, each.sequence, each.received);
        }
    });
    newValues.clear();
    return true;
}

bool HostLink::tick() {
    if (hostState == HostState::UNKNOWN && Clock::now() - stateSince >= kUnknownLimit) {
        changeState(HostState::DOWN);
    }
    if (hostState == HostState::UP && session.link() == Link::ANSWERED) {
        readAll();
        reportUnconfirmed();
    }
    return storeNew();
}

void HostLink::readAll() {
    for (std::size_t index = 0; index < inputs.size(); ++index) {
        std::visit([this, index](const auto& input) { arrive(index, input.read()); }, inputs[index]);
    }
}

void HostLink::reportUnconfirmed() {
    constexpr std::chrono::seconds kPatience{5};
    constexpr std::size_t kMaxNames = 5;
    if (isUnconfirmedReported || Clock::now() - stateSince < kPatience) {
        return;
    }
    isUnconfirmedReported = true;
    std::string names;
    std::size_t count = 0;
    const auto add = [&](const std::string& name) {
        names += ++count <= kMaxNames ? (count > 1 ? ", " : "") + tools::shownName(name) : "";
    };
    for (const ParameterStatus& parameter : session.parameters()) {
        if (!parameter.isConfirmed) {
            add(parameter.name);
        }
    }
    if (count > 0) {
        log.warning("host " + config.host.text() + ": it does not confirm " + names +
                    (count > kMaxNames ? " and " + std::to_string(count - kMaxNames) + " more names" : "") +
                    "; does it know them?");
    }
}

void HostLink::noteLink(const LinkEvent& event) {
    if (event.link >= Link::ANSWERED) {
        if (hostState != HostState::UP) {
            log.notice("host: " + event.text);
            changeState(HostState::UP);
        }
        if (event.link == Link::READY) {
            // An input whose value is the same as before the loss may call no function.
            readAll();
        }
    } else if (event.cause != Cause::NONE || hostState == HostState::UP) {
        changeState(HostState::DOWN);  // The session's log has the reason.
    }
}

void HostLink::changeState(HostState next) {
    if (hostState == next) {
        return;
    }
    storeNew();
    hostState = next;
    stateSince = Clock::now();
    isUnconfirmedReported = false;
    const bool isUp = next == HostState::UP;
    answers += isUp ? 1 : 0;
    isStored.assign(isStored.size(), false);
    outbox.change([&](Outbox& shared) {
        shared.setNotice(Outbox::Notice::HOST, isUp ? "up" : "down");
        if (!isUp) {
            shared.values.loseHost(config.stale);
        }
    });
    onState(next);
}

void HostLink::set(std::size_t index, double value) {
    std::visit(
        [value](const auto& output) {
            if constexpr (std::is_same_v<decltype(output), const Output<float>&>) {
                output.set(static_cast<float>(value));
            } else {
                output.set(static_cast<std::int32_t>(value));
            }
        },
        outputs[index]);
}

}  // namespace com_tesk::mqtt
