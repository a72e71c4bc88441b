// Fixed work of the session's parts, for the instruction counter.

#include <memory>

#include "bench/CostCases.h"
#include "bench/Frames.h"
#include "bench/Names.h"
#include "session/FrameSender.h"
#include "session/Log.h"
#include "session/Session.h"
#include "session/UpdateReceiver.h"

namespace com_tesk::bench {

namespace {

constexpr unsigned int kMany = 1'000;
constexpr unsigned int kRotating = 100;

/// The parts of a session between the handles and the socket, without a thread and without a socket.
class SessionParts : private session::SlotOwner, private session::SessionProtocol::Observer {
  public:
    SessionParts()
        : protocol(*this, 1),
          transport(*new session::SessionTransport({})),
          sender(*this, protocol, transport, wake, 0),
          receiver(sender, protocol, dispatcher, log) {
        protocol.changeCommsInterface(&transport);
        receiver.begin();
    }

    session::WakePipe wake;
    const session::Log log{{}};
    session::Dispatcher dispatcher;
    session::SessionProtocol protocol;
    session::SessionTransport& transport;
    session::FrameSender sender;
    session::UpdateReceiver receiver;

  private:
    void withdraw(session::OutputSlot& /*slot*/) override {}
    void withdraw(session::InputSlot& /*slot*/) override {}
    void setCallback(session::InputSlot& /*slot*/,
                     std::function<void(const session::SampleReading&)> /*callback*/) override {}
    void maxAgeChanged(session::InputSlot& /*slot*/) override {}
    void connectionBegan() override {}
    void connectionEnded() noexcept override {}
    void messageReceived(const RawMessage& /*message*/) override {}
};

RawMessage bodyOf(const host::Bytes& frame) {
    const auto* const bytes = reinterpret_cast<const char*>(frame.data());
    return {bytes + host::layout::kHeaderSize, static_cast<unsigned int>(frame.size() - host::layout::kHeaderSize),
            RawMessage::DATA};
}

}  // namespace

void sessionSet(const char* name) {
    SessionParts parts;
    std::vector<session::OutputSlot*> slots;
    for (unsigned int i = 0; i < kRotating; ++i) {
        slots.push_back(&parts.sender.declareOutput(parameterName(i), session::ValueType::FLOAT, 0));
    }
    count(name, 1'000, 1, [&](unsigned int i) {
        slots[i % kRotating]->set(i);
        if (i % kRotating == kRotating - 1) {
            for (session::OutputSlot* slot = parts.sender.stage().takeAll(); slot != nullptr; slot = slot->nextStaged) {
                slot->unstage();
            }
        }
    });
}

void sessionUpdateMany(const char* name) {
    SessionParts parts;
    std::vector<host::InputConfirmation> inputs;
    for (unsigned int i = 0; i < kMany; ++i) {
        parts.sender.declareInput(parameterName(i), session::ValueType::FLOAT, 0);
        inputs.push_back({i + 1, 0, 0, HostValue::real(1.0F), parameterName(i)});
    }
    parts.sender.begin(1);
    parts.receiver.receive(bodyOf(host::encodeInputsReply(1, inputs)));
    const RawMessage update = bodyOf(updateFrame(kMany));
    count(name, 20, kMany, [&](unsigned int /*i*/) { parts.receiver.receive(update); });
}

void sessionHealth(const char* name) {
    Session session{Session::Options()};
    for (unsigned int i = 0; i < kMany; ++i) {
        session.output<float>(parameterName(i));
    }
    count(name, 20, kMany, [&](unsigned int /*i*/) { session.health(); });
}

void sessionParameters(const char* name) {
    Session session{Session::Options()};
    for (unsigned int i = 0; i < kMany; ++i) {
        session.input<float>(parameterName(i));
    }
    count(name, 20, kMany, [&](unsigned int /*i*/) { session.parameters(); });
}

}  // namespace com_tesk::bench
