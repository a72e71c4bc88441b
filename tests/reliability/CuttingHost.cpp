#include "tests/reliability/CuttingHost.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "host/Replies.h"
#include "tests/reliability/Sockets.h"

namespace com_tesk::test {

namespace {

/// Ids of one connection never name anything on the next.
constexpr std::uint32_t kIdsPerConnection = 1000;

}  // namespace

CuttingHost::CuttingHost(std::optional<Cut> cutOfTheFirst)
    : cut(cutOfTheFirst), listener(listenOnLoopback()), wakeUp(eventfd(0, EFD_CLOEXEC)), portNumber(portOf(listener)) {
    thread = std::thread([this] { run(); });
}

CuttingHost::~CuttingHost() {
    eventfd_write(wakeUp, 1);
    thread.join();
    if (connection >= 0) {
        close(connection);
    }
    for (const int descriptor : drained) {
        close(descriptor);
    }
    close(listener);
    close(wakeUp);
}

CuttingHost::View CuttingHost::view() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return shown;
}

bool CuttingHost::waitUntil(const std::function<bool(const View&)>& condition, std::chrono::milliseconds bound) const {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, bound, [&] { return condition(shown); });
}

void CuttingHost::run() {
    for (;;) {
        std::vector<pollfd> waiting{{wakeUp, POLLIN, 0}, {listener, POLLIN, 0}};
        const std::size_t firstDrained = connection >= 0 ? 3 : 2;
        if (connection >= 0) {
            waiting.push_back({connection, POLLIN, 0});
        }
        for (const int descriptor : drained) {
            waiting.push_back({descriptor, POLLIN, 0});
        }
        poll(waiting.data(), waiting.size(), -1);
        if (waiting[0].revents != 0) {
            return;
        }
        for (std::size_t i = firstDrained; i < waiting.size(); ++i) {
            std::array<char, 4096> dropped{};
            if (waiting[i].revents != 0 && recv(waiting[i].fd, dropped.data(), dropped.size(), 0) <= 0) {
                close(waiting[i].fd);
                drained.erase(std::find(drained.begin(), drained.end(), waiting[i].fd));
            }
        }
        if (firstDrained == 3 && waiting[2].revents != 0) {
            receive();
        }
        if (waiting[1].revents != 0) {
            letIn();
        }
        show();
    }
}

void CuttingHost::letIn() {
    const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0) {
        return;
    }
    if (connection >= 0) {
        endConnection(Ending::IN_ORDER);
    }
    connection = accepted;
    ++current.connections;
    reader = std::make_unique<host::FrameReader>();
    inputs = host::Registrations();
    outputs = host::Registrations();
    ids = host::IdSource(static_cast<std::uint32_t>(current.connections) * kIdsPerConnection);
    cutWhenDue();
}

void CuttingHost::receive() {
    std::array<std::uint8_t, 4096> buffer{};
    const std::size_t wanted = allowed(Direction::TO_HOST, buffer.size());
    const ssize_t count = recv(connection, buffer.data(), wanted, 0);
    if (count <= 0) {
        endConnection(Ending::IN_ORDER);
        return;
    }
    current.received += static_cast<std::size_t>(count);
    for (const host::Frame& frame : reader->feed(buffer.data(), static_cast<std::size_t>(count))) {
        if (connection >= 0) {
            handle(frame);
        }
    }
    cutWhenDue();
}

void CuttingHost::handle(const host::Frame& frame) {
    std::visit([this](const auto& request) { serve(request); }, host::parseRequest(frame.body));
}

void CuttingHost::serve(const host::VersionRequest& request) {
    current.hasAnsweredVersion = true;
    send(host::encodeVersionReply(request.simulatorId, "cutting host", 1));
}

void CuttingHost::serve(const host::SubscribeInputs& request) {
    std::vector<host::InputConfirmation> confirmations;
    for (const auto& record : request.inputs) {
        const std::uint32_t id = inputs.add(record.name, record.isInteger, ids).id;
        confirmations.push_back(
            {id, record.rate, record.secondRate, HostValue::fromBits(0, record.isInteger), record.name});
        current.inputs.insert(record.name);
    }
    send(host::encodeInputsReply(request.simulatorId, confirmations));
}

void CuttingHost::serve(const host::RegisterOutputs& request) {
    std::vector<host::OutputConfirmation> confirmations;
    for (const auto& record : request.outputs) {
        const std::uint32_t id = outputs.add(record.name, record.integerFlag != 0, ids).id;
        confirmations.push_back({id, record.rate, record.integerFlag, record.name});
        current.outputs.insert(record.name);
    }
    send(host::encodeOutputsReply(request.simulatorId, confirmations));
}

void CuttingHost::serve(const host::UnsubscribeInputs& request) {
    for (const std::uint32_t id : request.ids) {
        if (const auto input = inputs.remove(id)) {
            current.inputs.erase(input->name);
        }
    }
}

void CuttingHost::serve(const host::UnregisterOutputs& request) {
    for (const std::uint32_t id : request.ids) {
        if (const auto output = outputs.remove(id)) {
            current.outputs.erase(output->name);
            current.values.erase(output->name);
        }
    }
    sendUpdate(request.simulatorId);
}

void CuttingHost::serve(const host::Publish& request) {
    for (const auto& record : request.values) {
        if (const host::Registration* const output = outputs.byId(record.id)) {
            current.values.insert_or_assign(output->name, HostValue::fromBits(record.bits, output->isInteger));
        }
    }
    sendUpdate(request.simulatorId);
}

void CuttingHost::serve(const host::BadRequest& /*request*/) {}

void CuttingHost::sendUpdate(std::uint16_t simulatorId) {
    ++updates;
    std::vector<host::InputUpdate> values;
    for (const auto& [id, input] : inputs.all()) {
        values.push_back({id, HostValue::real(static_cast<float>(updates))});
    }
    send(host::encodeUpdate(simulatorId, values));
}

void CuttingHost::send(const host::Bytes& frame) {
    if (connection < 0) {
        return;
    }
    // One call for the whole frame, so that it arrives in one piece; so small that it always fits.
    const std::size_t wanted = allowed(Direction::TO_CLIENT, frame.size());
    if (wanted > 0 && ::send(connection, frame.data(), wanted, MSG_NOSIGNAL) >= 0) {
        current.sent += wanted;
    }
    cutWhenDue();
}

std::size_t CuttingHost::allowed(Direction direction, std::size_t wanted) const {
    if (!cut || current.connections != 1 || cut->direction != direction) {
        return wanted;
    }
    return std::min(wanted, cut->afterBytes - (direction == Direction::TO_HOST ? current.received : current.sent));
}

void CuttingHost::cutWhenDue() {
    if (connection < 0 || !cut || current.connections != 1) {
        return;
    }
    const std::size_t carried = cut->direction == Direction::TO_HOST ? current.received : current.sent;
    if (carried == cut->afterBytes) {
        current.isCut = true;
        endConnection(cut->ending);
    }
}

void CuttingHost::endConnection(Ending ending) {
    if (ending == Ending::RESET) {
        closeWithReset(connection);
    } else {
        // Closed only after the client: what it still sends would be answered with a reset.
        shutdown(connection, SHUT_WR);
        drained.push_back(connection);
    }
    connection = -1;
    // Whoever waits for something to be in place waits for the next connection.
    View next;
    next.connections = current.connections;
    next.isCut = current.isCut;
    current = next;
}

void CuttingHost::show() {
    const std::lock_guard<std::mutex> lock(mutex);
    shown = current;
    changed.notify_all();
}

}  // namespace com_tesk::test
