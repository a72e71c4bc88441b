#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSMutex.h"
#include "comms/ThreadSafety.h"

namespace com_tesk {

/// The callback interfaces of an engine, and their notification. Any thread; callbacks are made with no lock held.
///
/// The set is kept a second time as a list that notifiers share, so that a notification copies nothing.
class CallbackRegistry {
  public:
    CallbackRegistry();
    CallbackRegistry(const CallbackRegistry&) = delete;
    CallbackRegistry& operator=(const CallbackRegistry&) = delete;
    ~CallbackRegistry() = default;

    /// As `CSClient::addCallbackInterface`.
    unsigned int add(CSClient::CallbackIface* callbackInterface) CSCLIENT_EXCLUDES(callbackMutex);

    /// As `CSClient::removeCallbackInterface`. Needs no memory.
    /// @return the status of releasing the lock: 0, or 2 when that failed. So does `copyTo`.
    int remove(CSClient::CallbackIface* callbackInterface) CSCLIENT_EXCLUDES(callbackMutex);

    bool has(CSClient::CallbackIface* callbackInterface) const CSCLIENT_EXCLUDES(callbackMutex);
    int size() const CSCLIENT_EXCLUDES(callbackMutex);

    /// As `CSClient::getCallbackInterfaces`.
    int copyTo(std::set<CSClient::CallbackIface*>& out) const CSCLIENT_EXCLUDES(callbackMutex);

    /// Calls `notify(interface)` for each interface, in ascending pointer order.
    template <typename Notify>
    void notify(const Notify& notify) const CSCLIENT_EXCLUDES(callbackMutex) {
        notifyAll(*currentList(), notify);
    }

    /// As `notify`, on the worker thread. Takes no lock while the interfaces are those of the last time.
    template <typename Notify>
    void notifyFromWorker(const Notify& notify) CSCLIENT_EXCLUDES(callbackMutex) {
        const std::uint32_t version = callbackListVersion;
        // Taken out meanwhile: what a callback does must not change the list that it is called from.
        std::shared_ptr<const CallbackList> interfaces;
        interfaces.swap(workerCallbacks);
        if (interfaces == nullptr || version != workerCallbacksVersion) {
            renew(interfaces);
        }
        notifyAll(*interfaces, notify);
        workerCallbacks.swap(interfaces);
        workerCallbacksVersion = version;
    }

  private:
    friend class PartAccess;

    /// In ascending pointer order; null where one was removed for lack of memory for another list.
    using CallbackList = std::vector<std::atomic<CSClient::CallbackIface*>>;

    template <typename Notify>
    static void notifyAll(const CallbackList& interfaces, const Notify& notify) {
        for (const std::atomic<CSClient::CallbackIface*>& entry : interfaces) {
            CSClient::CallbackIface* const callbackInterface = entry;
            if (callbackInterface != nullptr) {
                notify(*callbackInterface);
            }
        }
    }

    /// Makes `callbackList` of `callbacks`.
    void replaceList() CSCLIENT_REQUIRES(callbackMutex);
    std::shared_ptr<const CallbackList> currentList() const CSCLIENT_EXCLUDES(callbackMutex);
    /// `interfaces = currentList()`, kept out of what is done for every update.
    [[gnu::cold]] void renew(std::shared_ptr<const CallbackList>& interfaces) const CSCLIENT_EXCLUDES(callbackMutex);

    mutable CSMutex callbackMutex;

    // Guarded by callbackMutex.

    std::set<CSClient::CallbackIface*> callbacks CSCLIENT_GUARDED_BY(callbackMutex);
    /// `callbacks` as a list. It is replaced, not changed; but when there is no memory for another one, an interface that
    /// is removed becomes null in it.
    std::shared_ptr<CallbackList> callbackList CSCLIENT_GUARDED_BY(callbackMutex);
    /// Changed under callbackMutex after each replacement of the list, read by the worker without it.
    std::atomic<std::uint32_t> callbackListVersion{0};

    // Worker thread: the list last notified, and its version.

    std::shared_ptr<const CallbackList> workerCallbacks;
    std::uint32_t workerCallbacksVersion = 0;
};

}  // namespace com_tesk
