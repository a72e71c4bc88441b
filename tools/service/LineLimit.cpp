#include "tools/service/LineLimit.h"

namespace com_tesk::service {

std::optional<std::uint64_t> LineLimit::admit(const std::string& key, Clock::time_point now) {
    if (const auto found = keys.find(key); found != keys.end()) {
        return admitAgain(found->second, now);
    }
    if (keys.size() >= maxKeys) {
        eraseExpired(now);
    }
    if (keys.size() < maxKeys) {
        keys.emplace(key, Key{now});
        return 0;
    }
    if (!further) {
        further = Key{now};
        return 0;
    }
    return admitAgain(*further, now);
}

std::optional<std::uint64_t> LineLimit::admitAgain(Key& key, Clock::time_point now) const {
    if (now - key.admitted < interval) {
        ++key.suppressed;
        return std::nullopt;
    }
    const std::uint64_t suppressed = key.suppressed;
    key = Key{now};
    return suppressed;
}

void LineLimit::eraseExpired(Clock::time_point now) {
    for (auto at = keys.begin(); at != keys.end();) {
        const bool isExpired = now - at->second.admitted >= interval && at->second.suppressed == 0;
        at = isExpired ? keys.erase(at) : std::next(at);
    }
}

}  // namespace com_tesk::service
