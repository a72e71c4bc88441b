#include "bench/HostProcess.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <new>

#include "bench/Frames.h"
#include "bench/Measure.h"
#include "host/Layout.h"
#include "host/Replies.h"

namespace com_tesk::bench {

namespace {

namespace layout = host::layout;

/// The size of one send. The bytes of one send arrive together.
constexpr std::size_t kBlockSize = 16U << 10U;
constexpr unsigned int kBlocksPerBurst = 8;

void pauseShortly() {
    constexpr timespec kPause{0, 20'000};
    nanosleep(&kPause, nullptr);
}

unsigned int updatesPerBlock(std::size_t updateSize) {
    return static_cast<unsigned int>(std::max<std::size_t>(1, kBlockSize / updateSize));
}

bool receiveAll(int socket, std::uint8_t* target, std::size_t size) {
    return ::recv(socket, target, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool sendAll(int socket, const std::uint8_t* source, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(socket, source, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        source += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

/// Returns the replies to a request to register, one frame each; none for any other message. The number of records in a
/// frame is limited so that the frame arrives in one piece, because the standard transport needs it whole.
std::vector<host::Bytes> repliesTo(const host::Bytes& body) {
    constexpr unsigned int kMaxRecords = 250;
    const unsigned int count = body.size() >= layout::kRecordsOffset ? host::wordAt(body, layout::kCountOffset) : 0;
    std::vector<host::Bytes> replies;
    for (unsigned int first = 0; first < count; first += kMaxRecords) {
        const unsigned int end = std::min(first + kMaxRecords, count);
        if (body[layout::kCodeOffset] == layout::kSubscribeInputs) {
            std::vector<host::InputConfirmation> inputs;
            for (unsigned int i = first; i < end; ++i) {
                const std::size_t name =
                    layout::kRecordsOffset + i * layout::kInputRequestSize + layout::kInputRequestName;
                inputs.push_back({i + 1, 0, 0, HostValue::real(1.0F), host::textAt(body, name, layout::kNameSize)});
            }
            replies.push_back(host::encodeInputsReply(1, inputs));
        } else if (body[layout::kCodeOffset] == layout::kRegisterOutputs) {
            std::vector<host::OutputConfirmation> outputs;
            for (unsigned int i = first; i < end; ++i) {
                const std::size_t name =
                    layout::kRecordsOffset + i * layout::kOutputRequestSize + layout::kOutputRequestName;
                outputs.push_back({i + 1, 0, 0, host::textAt(body, name, layout::kNameSize)});
            }
            replies.push_back(host::encodeOutputsReply(1, outputs));
        }
    }
    return replies;
}

}  // namespace

HostProcess::HostProcess(const HostTask& newTask) : task(newTask) {
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(memory != MAP_FAILED, "shared memory");
    shared = new (memory) Shared;

    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof name;
    check(bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0 && listen(listener, 8) == 0 &&
              getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length) == 0,
          "host");
    portNumber = ntohs(name.sin_port);
    child = fork();
    check(child >= 0, "fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        run(listener);
    }
    ::close(listener);
}

HostProcess::~HostProcess() {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    munmap(shared, sizeof(Shared));
}

unsigned int HostProcess::updatesPerBurst() const {
    return kBlocksPerBurst * updatesPerBlock(updateFrame(task.valuesPerUpdate).size());
}

void HostProcess::waitUntilSent() const {
    while (shared->updatesSent != shared->updatesAsked) {
        pauseShortly();
    }
}

void HostProcess::run(int listener) const {
    for (;;) {
        const int accepted = accept(listener, nullptr, nullptr);
        constexpr int kOn = 1;
        setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
        serve(accepted);
        ::close(accepted);
    }
}

void HostProcess::serve(int socket) const {
    for (unsigned int left = task.registrations; left > 0 || task.kind == HostTask::CONFIRM; --left) {
        if (!confirm(socket)) {
            return;
        }
    }
    switch (task.kind) {
        case HostTask::CONFIRM:
            break;
        case HostTask::DISCARD:
            discard(socket);
            break;
        case HostTask::UPDATE:
            update(socket);
            break;
        case HostTask::ECHO:
            echo(socket);
            break;
    }
}

bool HostProcess::confirm(int socket) {
    host::Bytes frame;
    for (;;) {
        frame.resize(layout::kHeaderSize);
        if (!receiveAll(socket, frame.data(), frame.size())) {
            return false;
        }
        frame.resize(host::wordFrom(frame.data()) - layout::kHeaderSize);
        if (!receiveAll(socket, frame.data(), frame.size())) {
            return false;
        }
        const std::vector<host::Bytes> replies = repliesTo(frame);
        if (!replies.empty()) {
            return std::all_of(replies.begin(), replies.end(), [socket](const host::Bytes& reply) {
                return sendAll(socket, reply.data(), reply.size());
            });
        }
    }
}

void HostProcess::discard(int socket) const {
    static std::uint8_t bytes[64U << 10U];
    if (task.readsRarely) {
        // The host sleeps until the buffer is full. Otherwise each frame would wake it, at the sender's expense. A
        // slower sender finds the host asleep more often, so it would pay for more wake-ups.
        constexpr int kAll = sizeof bytes;
        check(setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &kAll, sizeof kAll) == 0, "SO_RCVLOWAT");
    }
    while (::recv(socket, bytes, sizeof bytes, task.readsRarely ? MSG_WAITALL : 0) > 0) {
    }
}

void HostProcess::update(int socket) const {
    const host::Bytes frame = updateFrame(task.valuesPerUpdate);
    const unsigned int perBlock = updatesPerBlock(frame.size());
    host::Bytes block;
    for (unsigned int i = 0; i < perBlock; ++i) {
        block.insert(block.end(), frame.begin(), frame.end());
    }
    for (;;) {
        const unsigned int count = std::min(shared->updatesAsked - shared->updatesSent, perBlock);
        if (count == 0) {
            // A read of 0 bytes means that the other side has closed the connection.
            std::uint8_t byte = 0;
            if (::recv(socket, &byte, 1, MSG_DONTWAIT) == 0) {
                return;
            }
            pauseShortly();
            continue;
        }
        if (!sendAll(socket, block.data(), count * frame.size())) {
            return;
        }
        // On the loopback interface, bytes that have been sent have arrived. Their acknowledgement may take another 40
        // ms.
        int unsent = 1;
        while (unsent > 0 && ioctl(socket, SIOCOUTQNSD, &unsent) == 0) {
        }
        shared->updatesSent += count;
    }
}

void HostProcess::echo(int socket) {
    host::Bytes update = updateFrame(1);
    host::Bytes publication(kPublicationOfOne);
    while (receiveAll(socket, publication.data(), publication.size())) {
        // The value is at the end of both frames.
        std::memcpy(update.data() + update.size() - 4, publication.data() + publication.size() - 4, 4);
        if (!sendAll(socket, update.data(), update.size())) {
            return;
        }
    }
}

}  // namespace com_tesk::bench
