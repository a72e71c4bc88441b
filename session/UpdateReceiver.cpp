#include "session/UpdateReceiver.h"

#include "simulator/HostMessages.h"

namespace com_tesk::session {

void UpdateReceiver::begin() {
    byId.clear();
    answered = false;
}

bool UpdateReceiver::receive(const RawMessage& message) {
    switch (wire::messageCode(message)) {
        case layout::kOutputRegistrationConfirmed:
            receiveOutputConfirmation(message);
            return true;
        case layout::kInputSubscriptionConfirmed:
            receiveInputConfirmation(message);
            return true;
        case layout::kUpdate:
            receiveUpdate(message);
            return false;
        case layout::kVersion:
            receiveVersion(message);
            return true;
        default:
            return false;  // Foreign and unknown messages are ignored, as by every client.
    }
}

void UpdateReceiver::receiveVersion(const RawMessage& message) {
    const wire::VersionReport report(message);
    if (!report.isAccepted()) {
        log.write(Session::Level::WARNING, "the host does not accept this client");
        return;
    }
    {
        HostFacts now{std::string(report.text()), report.protocolVersion()};
        const MutexLock lock(hostMutex);
        facts.version.swap(now.version);
        facts.protocol = now.protocol;
    }
    const std::chrono::microseconds time = sender.versionAnswered();
    if (time.count() >= 0) {
        lastRoundTrip = time.count();
    }
    const std::uint32_t id = report.simulatorId();
    if (id != protocol.getSimulatorId()) {
        log.write(Session::Level::WARNING, "the host has assigned the simulator id " + std::to_string(id));
        // An id out of range is not taken over. Everything is registered again nevertheless, as every client does.
        protocol.setSimulatorId(id);
        sender.registerAgain();
    }
    answered = true;
}

void UpdateReceiver::receiveOutputConfirmation(const RawMessage& message) {
    const std::size_t strange = sender.confirmOutputs(wire::OutputConfirmations(message));
    if (strange != 0) {
        log.write(Session::Level::DETAIL,
                  "the host has confirmed " + std::to_string(strange) + " outputs that are not declared");
    }
}

void UpdateReceiver::receiveInputConfirmation(const RawMessage& message) {
    const wire::InputConfirmations records(message);
    const Clock::time_point now = Clock::now();
    std::size_t values = 0;
    changed.clear();
    sender.confirmInputs(records, [&](InputSlot& slot, unsigned int index) {
        byId[records.id(index)] = &slot;
        records.read(index, record);
        store(slot, record, now, Source::CONFIRMATION);
        ++values;
    });
    passOn(values);
}

void UpdateReceiver::receiveUpdate(const RawMessage& message) {
    const wire::ValueUpdates records(message);
    const Clock::time_point now = Clock::now();
    std::size_t values = 0;
    changed.clear();
    for (unsigned int i = 0; i < records.size(); ++i) {
        const auto found = byId.find(records.id(i));
        if (found == byId.end() || !found->second->isDeclared) {
            ++unknown;
            continue;
        }
        records.read(i, record);
        store(*found->second, record, now, Source::UPDATE);
        ++values;
    }
    passOn(values);
}

void UpdateReceiver::store(InputSlot& slot, const CSClient::Parameter& value, Clock::time_point now, Source source) {
    const bool keepsType = slot.type == ValueType::NUMBER;
    if (!keepsType && value.type != wireType(slot.type) && !slot.isMismatchReported) {
        slot.isMismatchReported = true;
        log.write(Session::Level::WARNING, "the host sends \"" + slot.name() + "\" as " +
                                               (value.type == CSClient::TYPE_INT ? "an integer" : "a float") +
                                               ", and it is declared otherwise: its values are converted");
    }
    const bool isInteger = keepsType && value.type == CSClient::TYPE_INT;
    const Sample sample{convert(value, slot.type), isInteger, now.time_since_epoch().count(), ++slot.received};
    slot.newest.write(sample);
    if (slot.isWatched) {
        // A confirmation takes effect before the change is passed on.
        changed.push_back({&slot, {sample, source == Source::CONFIRMATION ? Quality::GOOD : slot.linkQuality()}});
    }
}

void UpdateReceiver::passOn(std::size_t values) {
    valuesReceived += values;
    if (!changed.empty() || (values != 0 && dispatcher.wantsUpdates())) {
        dispatcher.addUpdate(changed, values);
    }
}

UpdateReceiver::HostFacts UpdateReceiver::host() {
    const MutexLock lock(hostMutex);
    return facts;
}

}  // namespace com_tesk::session
