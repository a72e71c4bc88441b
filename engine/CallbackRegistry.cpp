#include "engine/CallbackRegistry.h"

#include <new>

#include "comms/CSLockGuard.h"

namespace com_tesk {

CallbackRegistry::CallbackRegistry() : callbackList(std::make_shared<CallbackList>()) {}

unsigned int CallbackRegistry::add(CSClient::CallbackIface* callbackInterface) {
    if (callbackInterface == nullptr) {
        return 0;
    }
    const CSLockGuard lock(callbackMutex);
    const auto [position, inserted] = callbacks.insert(callbackInterface);
    if (!inserted) {
        return 0;
    }
    try {
        replaceList();
    } catch (...) {
        callbacks.erase(position);
        throw;
    }
    return 1;
}

int CallbackRegistry::remove(CSClient::CallbackIface* callbackInterface) {
    CSLockGuard lock(callbackMutex);
    if (callbacks.erase(callbackInterface) != 0) {
        try {
            replaceList();
        } catch (const std::bad_alloc&) {
            // An object that is being destroyed must be able to remove itself. Notifications in progress skip it,
            // too.
            for (std::atomic<CSClient::CallbackIface*>& entry : *callbackList) {
                if (entry == callbackInterface) {
                    entry = nullptr;
                }
            }
        }
    }
    return static_cast<int>(lock.unlock());
}

bool CallbackRegistry::has(CSClient::CallbackIface* callbackInterface) const {
    const CSLockGuard lock(callbackMutex);
    return callbacks.count(callbackInterface) != 0;
}

int CallbackRegistry::size() const {
    const CSLockGuard lock(callbackMutex);
    return static_cast<int>(callbacks.size());
}

int CallbackRegistry::copyTo(std::set<CSClient::CallbackIface*>& out) const {
    CSLockGuard lock(callbackMutex);
    out = callbacks;
    return static_cast<int>(lock.unlock());
}

void CallbackRegistry::replaceList() {
    callbackList = std::make_shared<CallbackList>(callbacks.begin(), callbacks.end());
    ++callbackListVersion;
}

std::shared_ptr<const CallbackRegistry::CallbackList> CallbackRegistry::currentList() const {
    const CSLockGuard lock(callbackMutex);
    return callbackList;
}

void CallbackRegistry::renew(std::shared_ptr<const CallbackList>& interfaces) const {
    interfaces = currentList();
}

}  // namespace com_tesk
