// The registry of callback interfaces.

#include <new>

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
        replaceCallbackList();
    } catch (...) {
        callbacks.erase(position);
        throw;
    }
    return 1;
}

int CSClientProtocol::removeCallbackInterface(CSClient::CallbackIface* callbackInterface) {
    CSLockGuard lock(callbackMutex);
    if (callbacks.erase(callbackInterface) != 0) {
        try {
            replaceCallbackList();
        } catch (const std::bad_alloc&) {
            // An object that is being destroyed must be able to remove itself whatever happens. Notifications under way
            // then pass it over too.
            for (std::atomic<CSClient::CallbackIface*>& entry : *callbackList) {
                if (entry == callbackInterface) {
                    entry = nullptr;
                }
            }
        }
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

void CSClientProtocol::replaceCallbackList() {
    callbackList = std::make_shared<CallbackList>(callbacks.begin(), callbacks.end());
    ++callbackListVersion;
}

std::shared_ptr<const CSClientProtocol::CallbackList> CSClientProtocol::callbacksToNotify() const {
    const CSLockGuard lock(callbackMutex);
    return callbackList;
}

void CSClientProtocol::renewCallbacks(std::shared_ptr<const CallbackList>& interfaces) const {
    interfaces = callbacksToNotify();
}

}  // namespace com_tesk
