// The registry of callback interfaces.

#include <algorithm>
#include <utility>

#include "comms/CSLockGuard.h"
#include "engine/CSClientProtocol.h"

namespace com_tesk {

unsigned int CSClientProtocol::addCallbackInterface(CSClient::CallbackIface* callbackInterface) {
    if (callbackInterface == nullptr) {
        return 0;
    }
    const CSLockGuard lock(callbackMutex);
    const auto [position, inserted] = callbacks.insert(callbackInterface);
    if (!inserted) {
        return 0;
    }
    try {
        callbackList = std::make_shared<const CallbackList>(callbacks.begin(), callbacks.end());
    } catch (...) {
        callbacks.erase(position);
        throw;
    }
    return 1;
}

int CSClientProtocol::removeCallbackInterface(CSClient::CallbackIface* callbackInterface) {
    CSLockGuard lock(callbackMutex);
    if (callbacks.count(callbackInterface) != 0) {
        auto remaining = std::make_shared<CallbackList>(callbacks.begin(), callbacks.end());
        remaining->erase(std::find(remaining->begin(), remaining->end(), callbackInterface));
        callbackList = std::move(remaining);
        callbacks.erase(callbackInterface);
    }
    return static_cast<int>(lock.unlock());
}

bool CSClientProtocol::hasCallbackInterface(CSClient::CallbackIface* callbackInterface) const {
    const CSLockGuard lock(callbackMutex);
    return callbacks.count(callbackInterface) != 0;
}

int CSClientProtocol::getNumCallbackInterfaces() const {
    const CSLockGuard lock(callbackMutex);
    return static_cast<int>(callbacks.size());
}

int CSClientProtocol::getCallbackInterfaces(std::set<CSClient::CallbackIface*>& out) const {
    CSLockGuard lock(callbackMutex);
    if (&out != &callbacks) {
        out = callbacks;
    }
    return static_cast<int>(lock.unlock());
}

std::shared_ptr<const CSClientProtocol::CallbackList> CSClientProtocol::callbacksToNotify() const {
    const CSLockGuard lock(callbackMutex);
    return callbackList;
}

}  // namespace com_tesk
