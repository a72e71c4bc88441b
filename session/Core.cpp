#include "session/Core.h"

#include <poll.h>

#include <ctime>
#include <new>
#include <stdexcept>
#include <utility>

#include "comms/SignalsBlocked.h"

namespace com_tesk::session {

namespace {

Session::Options checked(Session::Options options) {
    const auto demand = [](bool isValid, const char* text) {
        if (!isValid) {
            throw std::invalid_argument(std::string("csclient: Session::Options: ") + text);
        }
    };
    demand(!options.host.empty() && options.host.find('\0') == std::string::npos, "host is empty or has a zero byte");
    demand(options.port != 0, "port is 0");
    demand(options.simulatorId < SimulatorProtocol::kSimulatorIdLimit, "simulatorId is above 32767");
    demand(options.heartbeat.count() >= 0, "heartbeat is negative");
    demand(options.answerTimeout.count() >= 0, "answerTimeout is negative");
    demand(options.retry.count() >= 1, "retry is below a millisecond");
    demand(options.gather.count() >= 0, "gather is negative");
    demand(options.queueSize >= 1, "queueSize is 0");
    return options;
}

/// Gives the engine the session's transport, which it owns from then on.
SessionTransport& installTransport(SessionProtocol& protocol, const CSCommsInterfaceTCPBuffered::Bounds& bounds) {
    auto transport = std::make_unique<SessionTransport>(bounds);
    protocol.changeCommsInterface(transport.get());
    return *transport.release();
}

std::chrono::milliseconds ageOf(std::int64_t ticks) {
    if (ticks == 0) {
        return std::chrono::milliseconds(-1);
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() -
                                                                 Clock::time_point(Clock::duration(ticks)));
}

}  // namespace

Core::Core(Session::Options sessionOptions)
    : options(checked(std::move(sessionOptions))),
      log(options.log),
      wake(std::make_shared<WakePipe>()),
      links(dispatcher, log),
      protocol(*this, options.simulatorId),
      transport(installTransport(protocol, options.bounds)),
      sender(*this, protocol, transport, *wake, options.subscriptionMode),
      receiver(sender, protocol, dispatcher, log),
      supervisor({options, log, wake, dispatcher, links, sender, receiver, protocol, transport}) {}

Core::~Core() = default;

void Core::messageReceived(const RawMessage& message) {
    if (receiver.receive(message)) {
        supervisor.updateLink();
    }
}

void Core::declarationsChanged() {
    try {
        sender.trySend();
        supervisor.updateLink();
    } catch (const std::bad_alloc&) {
        // The declaration stands. The session's thread tells the host, when there is memory.
        sender.sendLater();
    }
}

void Core::withdraw(OutputSlot& slot) {
    sender.withdraw(slot);
    declarationsChanged();
}

void Core::withdraw(InputSlot& slot) {
    sender.withdraw(slot);
    declarationsChanged();
}

void Core::maxAgeChanged(InputSlot& slot) {
    dispatcher.addQualityChange(slot);  // With a longer age a value can become good again.
    supervisor.recheckAges();
}

void Core::setCallback(InputSlot& slot, std::function<void(const SampleReading&)> callback) {
    dispatcher.setInputCallback(slot, std::move(callback));
    supervisor.recheckAges();
}

void Core::startDispatching(const std::shared_ptr<Core>& self) {
    const MutexLock lock(dispatchThreadMutex);
    if (!dispatchThread.joinable()) {
        const SignalsBlocked inherited;
        dispatchThread = std::thread([self] { self->dispatchUntilEnd(); });
    }
}

void Core::dispatchUntilEnd() {
    while (!dispatcher.isEnded()) {
        pollfd waiting{dispatcher.descriptor(), POLLIN, 0};
        poll(&waiting, 1, -1);
        dispatcher.run();
    }
}

void Core::endDispatching() {
    dispatcher.end();
    std::thread ended;
    {
        const MutexLock lock(dispatchThreadMutex);
        ended.swap(dispatchThread);
    }
    if (ended.joinable()) {
        if (dispatcher.isRunningOnThisThread()) {
            ended.detach();  // It keeps this object alive until the callback has returned.
        } else {
            ended.join();
        }
        return;
    }
    constexpr timespec kPollInterval{0, 50'000};
    while (dispatcher.isRunning() && !dispatcher.isRunningOnThisThread()) {
        nanosleep(&kPollInterval, nullptr);
    }
}

Health Core::health() {
    Health health;
    health.connects = supervisor.connects();
    health.losses = supervisor.losses();
    health.failedAttempts = supervisor.failedAttempts();
    const LinkMonitor::LastFailure last = links.lastFailure();  // After the counts: their causes are there by then.
    health.link = links.current();
    health.lastCause = last.cause;
    health.lastError = last.error;
    const SessionTransport::Traffic& traffic = transport.traffic();
    health.framesIn = traffic.framesIn;
    health.framesOut = traffic.framesOut;
    health.bytesIn = traffic.bytesIn;
    health.bytesOut = traffic.bytesOut;
    health.valuesIn = receiver.values();
    health.valuesOut = sender.valuesSent();
    sender.forEachOutput([&health](const OutputSlot& slot) {
        health.overwritten += slot.overwritten;
        health.droppedOutputs += slot.dropped;
    });
    sender.forEachInput([&health](const InputSlot& slot) { health.droppedInputs += slot.dropped; });
    health.droppedEvents = dispatcher.droppedEvents();
    health.unknownIds = receiver.unknownIds();
    UpdateReceiver::HostFacts host = receiver.host();
    health.hostVersion.swap(host.version);
    health.protocolVersion = host.protocol;
    health.simulatorId = protocol.getSimulatorId();
    health.roundTrip = std::chrono::microseconds(receiver.roundTrip());
    health.sinceConnected = ageOf(supervisor.connectedSince());
    health.sinceReceived = ageOf(traffic.lastReceived);
    return health;
}

std::vector<ParameterStatus> Core::parameters() {
    std::vector<ParameterStatus> list;
    const auto add = [&list](const auto& slot, ParameterStatus::Direction direction) -> ParameterStatus& {
        ParameterStatus status;
        status.name = slot.name();
        status.direction = direction;
        status.type = slot.type;
        status.delivery = slot.delivery();
        status.isConfirmed = slot.isConfirmed();
        list.push_back(std::move(status));
        return list.back();
    };
    sender.forEachOutput([&add](OutputSlot& slot) {
        if (slot.isDeclared) {
            ParameterStatus& status = add(slot, ParameterStatus::Direction::OUTPUT);
            status.value = toNumber(slot.lastSet(), slot.type);
            status.count = slot.sent;
        }
    });
    sender.forEachInput([&add](InputSlot& slot) {
        if (slot.isDeclared) {
            ParameterStatus& status = add(slot, ParameterStatus::Direction::INPUT);
            const SampleReading reading = slot.read();
            status.value = toNumber(reading.sample.bits, slot.typeOf(reading.sample));
            status.quality = reading.quality;
            status.count = reading.sample.number;
            status.age = ageOf(reading.sample.received);
        }
    });
    return list;
}

}  // namespace com_tesk::session
