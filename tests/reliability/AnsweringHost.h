#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "host/FrameReader.h"
#include "host/Registrations.h"
#include "host/Replies.h"
#include "host/Requests.h"
#include "host/Value.h"
#include "tests/reliability/ConnectionHost.h"

namespace com_tesk::test {

/// A host that answers each request in full before it reads the next one. It can end its first connection after a given
/// number of bytes. It keeps nothing from one connection to the next.
///
/// It answers a publish and an unregistration of outputs with an update of all inputs. Ids differ from connection to
/// connection, so an id of an earlier one names nothing.
class AnsweringHost {
  public:
    struct Cut {
        bool isToHost;  ///< counts the bytes to the host, otherwise those to the client
        bool isReset;   ///< the client's next read or write fails, otherwise the stream ends in order
        std::size_t afterBytes;
    };

    struct Settings {
        std::optional<Cut> cut;
        unsigned int updateRepeats = 1;  ///< how often an update contains each input
        bool hasSmallSendBuffer = false;
        bool hasView = true;  ///< a view is copied after each read, which costs much time with many inputs
    };

    /// All but the first two describe the current connection, and are empty without one.
    struct View {
        int connections = 0;
        bool isCut = false;
        bool hasAnsweredVersion = false;
        std::set<std::string> inputs;
        std::set<std::string> outputs;
        std::map<std::string, HostValue> values;  ///< of registered outputs
        std::size_t received = 0;
        std::size_t sent = 0;

        std::string text() const {
            std::string text = "connections " + std::to_string(connections) + ", inputs " +
                               testing::PrintToString(inputs) + ", outputs " + testing::PrintToString(outputs);
            for (const auto& [name, value] : values) {
                text += ", " + name + '=' + value.text();
            }
            return text;
        }
    };

    explicit AnsweringHost(const Settings& newSettings) : settings(newSettings) {}

    unsigned int port() const { return host.port(); }
    int updatesSent() const { return updates; }
    View view() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return current;
    }

    /// Waits until the view satisfies the condition. The host has answered every request that the view shows.
    bool waitUntil(const std::function<bool(const View&)>& condition, std::chrono::milliseconds bound) const {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, bound, [&] { return condition(current); });
    }

  private:
    /// One connection. It shows its view only after it has answered.
    class Session {
      public:
        Session(AnsweringHost& newOwner, HostConnection& newConnection, int number)
            : owner(newOwner), connection(newConnection), ids(1000 * static_cast<std::uint32_t>(number)) {
            if (number == 1) {
                cut = owner.settings.cut;
            }
            if (owner.settings.hasSmallSendBuffer) {
                connection.shrinkSendBuffer();
            }
            view.connections = number;
        }

        void run() {
            std::array<std::uint8_t, 4096> buffer{};
            while (!isCutDue()) {
                show(view);
                const std::size_t count = connection.receive(buffer.data(), allowed(true, buffer.size()));
                if (count == 0) {
                    showEnd();
                    return;
                }
                view.received += count;
                for (const host::Frame& frame : reader.feed(buffer.data(), count)) {
                    std::visit(*this, host::parseRequest(frame.body));
                }
            }
            showEnd();
            if (cut->isReset) {
                connection.resetAtEnd();
                return;
            }
            connection.endSending();
            // Closing before the client would answer its next bytes with a reset.
            connection.drop(-1);
        }

        void operator()(const host::VersionRequest& request) {
            view.hasAnsweredVersion = true;
            send(host::encodeVersionReply(request.simulatorId, "cutting host", 1));
        }

        void operator()(const host::SubscribeInputs& request) {
            std::vector<host::InputConfirmation> confirmations;
            for (const auto& record : request.inputs) {
                confirmations.push_back({inputs.add(record.name, record.isInteger, ids).id, record.rate,
                                         record.secondRate, HostValue::fromBits(0, record.isInteger), record.name});
                view.inputs.insert(record.name);
            }
            send(host::encodeInputsReply(request.simulatorId, confirmations));
        }

        void operator()(const host::RegisterOutputs& request) {
            std::vector<host::OutputConfirmation> confirmations;
            for (const auto& record : request.outputs) {
                confirmations.push_back({outputs.add(record.name, record.integerFlag != 0, ids).id, record.rate,
                                         record.integerFlag, record.name});
                view.outputs.insert(record.name);
            }
            send(host::encodeOutputsReply(request.simulatorId, confirmations));
        }

        void operator()(const host::UnsubscribeInputs& request) {
            for (const std::uint32_t id : request.ids) {
                if (const auto input = inputs.remove(id)) {
                    view.inputs.erase(input->name);
                }
            }
        }

        void operator()(const host::UnregisterOutputs& request) {
            for (const std::uint32_t id : request.ids) {
                if (const auto output = outputs.remove(id)) {
                    view.outputs.erase(output->name);
                    view.values.erase(output->name);
                }
            }
            sendUpdate(request.simulatorId);
        }

        void operator()(const host::Publish& request) {
            for (const auto& record : request.values) {
                const host::Registration* const output = owner.settings.hasView ? outputs.byId(record.id) : nullptr;
                if (output != nullptr) {
                    view.values.insert_or_assign(output->name, HostValue::fromBits(record.bits, output->isInteger));
                }
            }
            sendUpdate(request.simulatorId);
        }

        void operator()(const host::BadRequest& /*request*/) {}

      private:
        void sendUpdate(std::uint16_t simulatorId) {
            const int number = owner.updates + 1;
            std::vector<host::InputUpdate> values;
            for (const auto& idAndInput : inputs.all()) {
                values.insert(values.end(), owner.settings.updateRepeats,
                              {idAndInput.first, HostValue::real(static_cast<float>(number))});
            }
            send(host::encodeUpdate(simulatorId, values));
            owner.updates = number;
        }

        void send(const host::Bytes& frame) {
            const std::size_t wanted = allowed(false, frame.size());
            connection.send(frame.data(), wanted);
            view.sent += wanted;
        }

        std::size_t carried() const { return cut->isToHost ? view.received : view.sent; }
        bool isCutDue() const { return cut && carried() == cut->afterBytes; }
        std::size_t allowed(bool isToHost, std::size_t wanted) const {
            return cut && cut->isToHost == isToHost ? std::min(wanted, cut->afterBytes - carried()) : wanted;
        }

        void show(const View& shown) {
            if (!owner.settings.hasView) {
                return;
            }
            const std::lock_guard<std::mutex> lock(owner.mutex);
            const bool wasCut = owner.current.isCut || shown.isCut;
            if (owner.current.connections <= shown.connections) {
                owner.current = shown;
            }
            owner.current.isCut = wasCut;
            owner.changed.notify_all();
        }

        void showEnd() {
            View ended;
            ended.connections = view.connections;
            ended.isCut = cut && isCutDue();
            show(ended);
        }

        AnsweringHost& owner;
        HostConnection& connection;
        std::optional<Cut> cut;
        host::FrameReader reader;
        host::Registrations inputs;
        host::Registrations outputs;
        host::IdSource ids;
        View view;
    };

    const Settings settings;
    std::atomic<int> updates{0};
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    View current;  // guarded by mutex
    ConnectionHost host{[this](HostConnection& connection, int number) { Session(*this, connection, number).run(); }};
};

}  // namespace com_tesk::test
