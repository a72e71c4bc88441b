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

/// Keeps the callback interfaces of an engine and notifies them. Any thread. Callbacks are made with no lock held.
///
/// The set is also kept as a list that notifiers share, so that a notification copies nothing.
class CallbackRegistry {
  public:
    CallbackRegistry();
    CallbackRegistry(const CallbackRegistry&) = delete;
    CallbackRegistry& operator=(const CallbackRegistry&) = delete;
    ~CallbackRegistry() = default;

    /// As `CSClient::addCallbackInterface`.
    unsigned int add(CSClient::CallbackIface* callbackInterface) CSCLIENT_EXCLUDES(callbackMutex);

    /// As `CSClient::removeCallbackInterface`. Needs no memory.
    /// @return the status of releasing the lock: 0, or 2 when that failed. `copyTo` returns the same.
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

    /// As `notify`, on the worker thread. Takes no lock while the list is the one of the previous call: with `notify`,
    /// an update of one value takes 15 % more instructions.
    template <typename Notify>
    void notifyFromWorker(const Notify& notify) CSCLIENT_EXCLUDES(callbackMutex) {
        const std::uint32_t version = callbackListVersion;
        // The list is moved out during the calls, so that no action of a callback can change it.
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

    /// In ascending pointer order. An entry is null when it was removed without memory for a new list.
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

    /// Replaces `callbackList` by a copy of `callbacks`.
    void replaceList() CSCLIENT_REQUIRES(callbackMutex);
    std::shared_ptr<const CallbackList> currentList() const CSCLIENT_EXCLUDES(callbackMutex);
    /// Assigns `currentList()` to `interfaces`. Cold, so that the code for each update stays small.
    [[gnu::cold]] void renew(std::shared_ptr<const CallbackList>& interfaces) const CSCLIENT_EXCLUDES(callbackMutex);

    mutable CSMutex callbackMutex;

    // Guarded by callbackMutex.

    std::set<CSClient::CallbackIface*> callbacks CSCLIENT_GUARDED_BY(callbackMutex);
    /// `callbacks` as a list. A change replaces it. Without memory for a new list, a removed interface becomes null
    /// in it.
    std::shared_ptr<CallbackList> callbackList CSCLIENT_GUARDED_BY(callbackMutex);
    /// Incremented under callbackMutex after each replacement of the list. The worker reads it without the lock.
    std::atomic<std::uint32_t> callbackListVersion{0};

    // Worker thread: the list of the previous notification, and its version.

    std::shared_ptr<const CallbackList> workerCallbacks;
    std::uint32_t workerCallbacksVersion = 0;
};

}  // namespace com_tesk
