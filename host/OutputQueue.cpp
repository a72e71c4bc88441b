#include "host/OutputQueue.h"

#include <utility>

namespace com_tesk::host {

bool OutputQueue::push(Bytes frame) {
    if (!frames.empty() && (queuedBytes >= maxBytes || frame.size() > maxBytes - queuedBytes)) {
        return false;
    }
    queuedBytes += frame.size();
    frames.push_back(std::move(frame));
    return true;
}

void OutputQueue::pop() {
    queuedBytes -= frames.front().size();
    frames.pop_front();
}

void OutputQueue::clear() {
    frames.clear();
    queuedBytes = 0;
}

}  // namespace com_tesk::host
