#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/FrameReader.h"
#include "host/Registrations.h"
#include "host/Requests.h"
#include "host/Value.h"

namespace com_tesk::test {

/// Which way bytes travel.
enum class Direction { TO_HOST, TO_CLIENT };

/// How a host ends a connection.
enum class Ending {
    IN_ORDER,  ///< the client reads what was sent, then the end of the stream
    RESET,     ///< the client's next read or write fails
};

/// A host of one client after another that follows the protocol, until its first connection has carried a given number
/// of bytes in one direction: then it ends that connection. All that it knows belongs to the connection at hand.
///
/// It answers every publish and every unregistration of outputs with one update of all inputs. Ids differ from
/// connection to connection, so that an id of an earlier one names nothing.
class CuttingHost {
  public:
    struct Cut {
        Direction direction;
        Ending ending;
        std::size_t afterBytes;
    };

    /// What there is to see. All but `connections` and `isCut` belong to the connection at hand, and are empty
    /// without one.
    struct View {
        int connections = 0;
        bool isCut = false;  ///< the cut has been made
        bool hasAnsweredVersion = false;
        std::set<std::string> inputs;
        std::set<std::string> outputs;
        std::map<std::string, HostValue> values;  ///< of outputs that are registered
        std::size_t received = 0;
        std::size_t sent = 0;
    };

    explicit CuttingHost(std::optional<Cut> cutOfTheFirst);
    CuttingHost(const CuttingHost&) = delete;
    CuttingHost& operator=(const CuttingHost&) = delete;
    ~CuttingHost();

    unsigned int port() const { return portNumber; }

    View view() const;

    /// Waits until what there is to see satisfies the condition; everything that it shows has been answered.
    bool waitUntil(const std::function<bool(const View&)>& condition, std::chrono::milliseconds bound) const;

  private:
    void run();
    void letIn();
    void receive();
    void handle(const host::Frame& frame);
    void serve(const host::VersionRequest& request);
    void serve(const host::SubscribeInputs& request);
    void serve(const host::RegisterOutputs& request);
    void serve(const host::UnsubscribeInputs& request);
    void serve(const host::UnregisterOutputs& request);
    void serve(const host::Publish& request);
    void serve(const host::BadRequest& request);
    void sendUpdate(std::uint16_t simulatorId);
    void send(const host::Bytes& frame);

    /// How many more bytes may go that way before the cut; as many as the caller has when none is to come.
    std::size_t allowed(Direction direction, std::size_t wanted) const;
    void cutWhenDue();
    void endConnection(Ending ending);
    void show();

    const std::optional<Cut> cut;
    int listener = -1;
    int wakeUp = -1;
    unsigned int portNumber = 0;

    // The thread's own.

    int connection = -1;
    std::vector<int> drained;  ///< connections ended in order: the client may still write to them
    std::unique_ptr<host::FrameReader> reader;
    host::Registrations inputs;
    host::Registrations outputs;
    host::IdSource ids;
    int updates = 0;
    View current;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    View shown;  // guarded by mutex

    std::thread thread;
};

}  // namespace com_tesk::test
