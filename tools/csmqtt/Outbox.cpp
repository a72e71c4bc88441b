#include "tools/csmqtt/Outbox.h"

#include <utility>

#include "tools/csmqtt/Payload.h"

namespace com_tesk::mqtt {

void Outbox::setNotice(Notice which, std::string payload) {
    Slot& slot = notices[static_cast<std::size_t>(which)];
    slot.payload = std::move(payload);
    slot.isDue = true;
}

void Outbox::restart() {
    values.restart();
    for (Slot& slot : notices) {
        slot.isDue = slot.payload.has_value();
    }
}

std::optional<Outbox::Item> Outbox::next(ValueTable::Clock::time_point now) {
    for (const Notice notice : {Notice::HOST, Notice::STATISTICS}) {
        Slot& slot = notices[static_cast<std::size_t>(notice)];
        if (slot.isDue) {
            slot.isDue = false;
            const bool isHost = notice == Notice::HOST;
            const std::string topic = isHost ? config.hostTopic() : config.statisticsTopic();
            return Item{{topic, *slot.payload, isHost ? 1 : 0, true}, std::nullopt, notice};
        }
    }
    if (const auto publication = values.next(now)) {
        return Item{messageOf(*publication, now), publication, Notice::HOST};
    }
    return std::nullopt;
}

void Outbox::putBack(const Item& item) {
    if (item.value) {
        values.putBack(*item.value);
    } else {
        notices[static_cast<std::size_t>(item.notice)].isDue = true;
    }
}

Message Outbox::messageOf(const ValueTable::Publication& publication, ValueTable::Clock::time_point now) const {
    const ToMqtt& setting = config.toMqtt[publication.index];
    Message message{config.valueTopic(setting.name), {}, setting.qos, true};
    if (!publication.isClear) {
        const auto age = std::chrono::duration_cast<std::chrono::system_clock::duration>(now - publication.received);
        const Sample sample{publication.value, publication.sequence, std::chrono::system_clock::now() - age};
        message.payload = payloadOf(sample, setting.type, setting.payload);
    }
    return message;
}

}  // namespace com_tesk::mqtt
