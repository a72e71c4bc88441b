#include "host/OutputQueue.h"

#include <utility>

namespace com_tesk::host {

bool OutputQueue::push(Bytes frame) {
    if (!m_frames.empty() && (m_bytes >= m_maxBytes || frame.size() > m_maxBytes - m_bytes)) {
        return false;
    }
    m_bytes += frame.size();
    m_frames.push_back(std::move(frame));
    return true;
}

void OutputQueue::pop() {
    m_bytes -= m_frames.front().size();
    m_frames.pop_front();
}

void OutputQueue::clear() {
    m_frames.clear();
    m_bytes = 0;
}

}  // namespace com_tesk::host
