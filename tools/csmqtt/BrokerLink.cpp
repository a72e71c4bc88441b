#include "tools/csmqtt/BrokerLink.h"

#include <poll.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "tools/csmqtt/Discovery.h"
#include "tools/csmqtt/Password.h"

namespace com_tesk::mqtt {

namespace {

constexpr std::chrono::milliseconds kFirstDelay{500};
constexpr std::chrono::milliseconds kMaxDelay{30'000};
// A connection that has lasted this long was a good one: the delays begin anew.
constexpr std::chrono::seconds kGoodConnection{10};
constexpr std::chrono::seconds kFarewell{1};

short poll(const Connection* connection, int wakeDescriptor, std::chrono::nanoseconds timeout, bool& isWoken) {
    pollfd waiting[2] = {{wakeDescriptor, POLLIN, 0}, {-1, POLLIN, 0}};
    if (connection != nullptr) {
        waiting[1].fd = connection->descriptor();
        const unsigned reading = connection->wantsRead() ? POLLIN : 0;
        const unsigned writing = connection->wantsWrite() ? POLLOUT : 0;
        waiting[1].events = static_cast<short>(reading | writing);
    }
    const auto whole = std::max(timeout, std::chrono::nanoseconds(0));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(whole);
    const timespec limit{static_cast<std::time_t>(seconds.count()), static_cast<long>((whole - seconds).count())};
    const int ready = ppoll(waiting, 2, &limit, nullptr);
    isWoken = ready > 0 && waiting[0].revents != 0;
    return ready > 0 ? waiting[1].revents : static_cast<short>(0);
}

}  // namespace

BrokerLink::BrokerLink(Environment linkEnvironment)
    : environment(std::move(linkEnvironment)),
      runId(environment.runId),
      families(environment.config.broker.address.host),
      delay(kFirstDelay),
      random(std::random_device()()) {
    mosquitto_lib_init();
}

BrokerLink::~BrokerLink() {
    isStopping.store(true);
    wakeup.wake();
    if (thread.joinable()) {
        thread.join();
    }
    mosquitto_lib_cleanup();
}

void BrokerLink::start() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

bool BrokerLink::stop(std::chrono::milliseconds timeout) {
    isStopping.store(true);
    wakeup.wake();
    if (!shared.waitUntil([](const State& now) { return now.hasEnded; }, timeout)) {
        return false;
    }
    thread.join();
    return true;
}

BrokerLink::State BrokerLink::state() const {
    return shared.read([](const State& now) { return now; });
}

void BrokerLink::run() {
    while (!isStopping.load()) {
        const ConnectionEnd end = tryFamilies();
        shared.change([&](State& now) {
            now.isUp = false;
            now.isOpening = false;
            now.counts.inFlight = 0;
            now.counts.brokerFailures += isStopping.load() ? 0 : 1;
        });
        if (isContested) {
            break;
        }
        environment.onChange();
        if (!isStopping.load()) {
            report(end);
            pause();
        }
    }
    shared.change([](State& now) { now.hasEnded = true; });
    environment.onChange();
}

ConnectionEnd BrokerLink::tryFamilies() {
    families.begin();
    std::optional<ConnectionEnd> first;
    for (;;) {
        ConnectionEnd end = runConnection();
        connection.reset();
        environment.onTurn();
        if (end.kind != ConnectionEnd::Kind::FAILED || isStopping.load()) {
            // The other families may have no address, which is no reason to report.
            return end.kind == ConnectionEnd::Kind::NOT_TRIED && first ? *first : end;
        }
        first = first.value_or(std::move(end));
        if (!families.fail()) {
            return *first;
        }
    }
}

ConnectionEnd BrokerLink::runConnection() {
    isGreeted = false;
    onlineSeen = 0;
    replies.clear();
    const Clock::time_point answerDeadline = Clock::now() + kAnswerTimeout;
    std::optional<ConnectionEnd> end = openConnection();
    while (!end && !isStopping.load() && !isContested) {
        if (connection->isAccepted() && !isGreeted) {
            greet();
        }
        if (isGreeted) {
            publishDue();
        } else if (Clock::now() >= answerDeadline) {
            return {ConnectionEnd::Kind::FAILED, "the broker does not answer"};
        }
        end = turn(isGreeted ? Clock::time_point::max() : answerDeadline);
    }
    if (end && end->kind == ConnectionEnd::Kind::TAKEN_OVER) {
        setConflict(end->text);
    }
    if (!end && isGreeted) {
        farewell();
    }
    return end.value_or(ConnectionEnd());
}

std::optional<ConnectionEnd> BrokerLink::openConnection() {
    using Kind = ConnectionEnd::Kind;
    const BrokerSettings& broker = environment.config.broker;
    try {
        connection.emplace(broker, Message{environment.config.stateTopic(), "offline", 1, true}, runId,
                           static_cast<Connection::Owner&>(*this));
        const std::string password = broker.passwordFile.empty() ? std::string() : readPassword(broker.passwordFile);
        shared.change([](State& now) { now.isOpening = true; });
        auto end = connection->open(password, families.current());
        shared.change([](State& now) { now.isOpening = false; });
        return end;
    } catch (const std::runtime_error& error) {
        return ConnectionEnd{Kind::NOT_TRIED, error.what()};
    }
}

void BrokerLink::greet() {
    isGreeted = true;
    accepted = Clock::now();
    lastReport.clear();
    connection->subscribe(environment.commands.filter(), true);
    connection->subscribe(environment.config.stateTopic(), false);
    if (environment.config.broker.protocol == ProtocolVersion::MQTT_311) {
        // Messages have no run id, but the statistics do.
        connection->subscribe(environment.config.statisticsTopic(), false);
    }
    for (const std::string& topic : discoverySubscriptions(environment.config)) {
        connection->subscribe(topic, false);
    }
    connection->publish({environment.config.stateTopic(), "online", 1, true}, true);
    for (Message& message : discoveryMessages(environment.config, environment.version)) {
        replies.push_back(std::move(message));
    }
    environment.outbox.change([](Outbox& outbox) { outbox.restart(); });
    shared.change([](State& now) {
        now.isUp = true;
        ++now.counts.brokerConnects;
    });
    environment.log.notice("broker " + environment.config.broker.address.text() + ": connected as " +
                           environment.config.broker.clientId);
    environment.onChange();
}

void BrokerLink::farewell() {
    // When another bridge has this base, its `online` stays.
    if (!isContested) {
        connection->publish({environment.config.stateTopic(), "offline", 1, true}, true);
        const Clock::time_point deadline = Clock::now() + kFarewell;
        while (connection->inFlight() > 0 && Clock::now() < deadline) {
            if (turn(deadline)) {
                return;
            }
        }
    }
    connection->disconnect();
}

void BrokerLink::publishDue() {
    // A round is limited, because messages with QoS 0 leave the window at once and the loop has to read, too.
    for (unsigned round = 0; round < kWindow && connection->inFlight() < kWindow; ++round) {
        if (publishReply()) {
            continue;
        }
        const auto item =
            environment.outbox.change([](Outbox& outbox) { return outbox.next(ValueTable::Clock::now()); });
        if (!item) {
            break;
        }
        publish(*item);
        if (connection->descriptor() < 0) {
            break;
        }
    }
    noteInFlight();
}

bool BrokerLink::publishReply() {
    if (replies.empty()) {
        return false;
    }
    const Message message = std::move(replies.front());
    replies.pop_front();
    if (const std::string error = connection->publish(message); !error.empty()) {
        onRefused(message.topic + ": " + error);
    }
    return true;
}

void BrokerLink::publish(const Outbox::Item& item) {
    const std::string error = connection->publish(item.message);
    if (error.empty()) {
        return;
    }
    if (connection->descriptor() < 0) {
        environment.outbox.change([&](Outbox& outbox) { outbox.putBack(item); });
    } else {
        onRefused(item.message.topic + ": " + error);
    }
}

std::optional<ConnectionEnd> BrokerLink::turn(Clock::time_point deadline) {
    bool isWoken = false;
    const Clock::time_point until = std::min(deadline, nextTurn());
    const short events = poll(&*connection, wakeup.descriptor(), until - Clock::now(), isWoken);
    if (isWoken) {
        wakeup.clear();
    }
    environment.onTurn();
    return connection->process(events);
}

BrokerLink::Clock::time_point BrokerLink::nextTurn() const {
    const Clock::time_point now = Clock::now();
    if (!isGreeted || connection->inFlight() >= kWindow) {
        return now + environment.maxTurn;
    }
    return environment.outbox.read([&](const Outbox& outbox) {
        const auto due = outbox.values.hasDue() ? now : outbox.values.nextDue().value_or(now + environment.maxTurn);
        return std::min(due, now + environment.maxTurn);
    });
}

void BrokerLink::report(const ConnectionEnd& end) {
    const std::string text = "broker " + environment.config.broker.address.text() + ": " + end.text;
    if (end.kind == ConnectionEnd::Kind::LOST) {
        constexpr unsigned kSuspicious = 3;
        shortConnections = Clock::now() - accepted < kGoodConnection ? shortConnections + 1 : 0;
        const std::string hint = shortConnections >= kSuspicious ? "; does another client use the client id " +
                                                                       environment.config.broker.clientId + '?'
                                                                 : std::string();
        environment.log.warning(text + "; connecting again" + hint);
    } else if (text != lastReport) {
        environment.log.warning(text + "; trying again");
    } else {
        environment.log.writeRarely(service::Level::WARNING, "broker " + end.text, text + "; still trying");
    }
    lastReport = text;
}

void BrokerLink::pause() {
    if (isGreeted && Clock::now() - accepted >= kGoodConnection) {
        delay = kFirstDelay;
    }
    // Clients that have lost the same broker do not all come back at the same moment.
    std::uniform_int_distribution<std::chrono::milliseconds::rep> jitter(delay.count() / 2, delay.count() * 3 / 2);
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(jitter(random));
    delay = std::min(delay * 2, kMaxDelay);
    while (!isStopping.load() && Clock::now() < end) {
        bool isWoken = false;
        poll(nullptr, wakeup.descriptor(), std::min(end, Clock::now() + environment.maxTurn) - Clock::now(), isWoken);
        if (isWoken) {
            wakeup.clear();
        }
        environment.onTurn();
    }
}

void BrokerLink::setConflict(const std::string& text) {
    isContested = true;
    shared.change([&](State& now) { now.conflict = text; });
}

void BrokerLink::noteInFlight() {
    const unsigned inFlight = connection->inFlight();
    shared.change([&](State& now) {
        now.counts.inFlight = inFlight;
        now.counts.maxInFlight = std::max(now.counts.maxInFlight, inFlight);
    });
}

}  // namespace com_tesk::mqtt
