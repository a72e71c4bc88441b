// The engine's frame reader, fed by a transport that splits the stream. The input: a count, as many bytes that each
// select the result of one read, and the stream. At the end of the stream, the transport reports that it was closed.

#include <cerrno>
#include <new>

#include "comms/CSCommsInterfaceTCP.h"
#include "fuzz/Fuzzing.h"
#include "message/RawMessage.h"
#include "tests/support/OpenEngine.h"

using com_tesk::CSClient;
using com_tesk::CSCommsInterfaceTCP;
using com_tesk::RawMessage;
using com_tesk::SimulatorProtocol;
using com_tesk::fuzz::Bytes;
using com_tesk::fuzz::Input;

namespace {

constexpr std::size_t kHeaderLength = 32;

/// The maximum size of a message. Beyond it the transport throws std::bad_alloc, as on a small machine.
constexpr std::size_t kMemory = std::size_t{1} << 20U;

/// The result of one read, by its byte in the input. A byte between AS_ASKED and FIRST_SPECIAL is the maximum count.
enum Step : std::uint8_t { AS_ASKED = 0, FIRST_SPECIAL = 0xF0, RESET = 0xFD, CLOSED = 0xFE, TIMEOUT = 0xFF };

/// One read by the engine.
struct Read {
    unsigned int asked;
    std::size_t sizeBefore;
    int result;
    bool threw;
    Bytes given;
};

class SplittingTransport : public CSCommsInterfaceTCP {
  public:
    explicit SplittingTransport(Input& fuzzed)
        : CSCommsInterfaceTCP(Options()),
          scriptBytes(fuzzed.countedBytes()),
          script(scriptBytes.data(), scriptBytes.size()),
          stream(fuzzed) {}

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override { return true; }
    int close() override { return 0; }
    int writeMessage(const RawMessage& message) override { return static_cast<int>(message.size()); }

    /// Behaves like the TCP transport: grows the message, reads, and cuts the message to `count` bytes after a short
    /// read.
    int readMessage(unsigned int count, RawMessage& message) override {
        reads.push_back({count, message.size(), 0, true, {}});
        Read& read = reads.back();
        if (count > kMemory || message.size() > kMemory - count) {
            throw std::bad_alloc();
        }
        read.threw = false;
        const std::size_t oldSize = message.size();
        message.resize(oldSize + count);
        read.result = receive(count, read.given);
        std::copy(read.given.begin(), read.given.end(), message.begin() + static_cast<std::ptrdiff_t>(oldSize));
        if (read.result >= 0 && static_cast<unsigned int>(read.result) < count) {
            message.resize(count);
        }
        return read.result;
    }

    std::vector<Read> reads;

  private:
    int receive(unsigned int count, Bytes& given) {
        const std::uint8_t step = script.byte();
        if (step == TIMEOUT) {
            errno = EAGAIN;
            return -2;
        }
        if (step == RESET) {
            // A repeated read on this connection gives the same error.
            errno = ECONNRESET;
            return -1;
        }
        if (step == CLOSED) {
            return 0;
        }
        given = stream.bytes(step == AS_ASKED || step >= FIRST_SPECIAL ? count : std::min<std::size_t>(count, step));
        return static_cast<int>(given.size());
    }

    Bytes scriptBytes;
    Input script;
    Input& stream;
};

/// An engine that connects without a worker and stores the message bodies that it receives.
class FrameEngine : public com_tesk::test::OpenEngine {
  public:
    explicit FrameEngine(Input& input) : OpenEngine(1, CSClient::OPTION_SILENT), split(new SplittingTransport(input)) {
        changeCommsInterface(split);
        pretendState(CSClient::STATE_CONNECTING);
        startConnection();
    }

    void handleReceivedMessage(const RawMessage& message) override {
        CSCLIENT_FUZZ_CHECK(!holdsAnyLock());
        bodies.push_back(message);
    }

    /// Owned by the engine.
    SplittingTransport* split;
    std::vector<RawMessage> bodies;
};

RawMessage::Type typeOf(std::uint32_t kind) {
    return kind == 0 ? RawMessage::DATA : kind == 3 ? RawMessage::CONTROL : RawMessage::INVALID;
}

/// True when the read returned a valid header of a frame with a body.
bool isGoodHeader(const Read& read) {
    return !read.threw && read.result == static_cast<int>(kHeaderLength) &&
           com_tesk::fuzz::wordAt(read.given, 4) == kHeaderLength &&
           com_tesk::fuzz::wordAt(read.given, 0) > kHeaderLength;
}

/// Returns the message that the reads of a body must result in. Each read grows the message by the requested count. A
/// short read cuts the message to that count.
Bytes assembled(const std::vector<Read>& reads) {
    Bytes body;
    for (std::size_t i = 1; i < reads.size(); ++i) {
        const Read& read = reads[i];
        const std::size_t oldSize = body.size();
        body.resize(oldSize + read.asked);
        std::copy(read.given.begin(), read.given.end(), body.begin() + static_cast<std::ptrdiff_t>(oldSize));
        if (read.result >= 0 && read.given.size() < read.asked) {
            body.resize(read.asked);
        }
    }
    return body;
}

void checkDelivery(const RawMessage& message, const std::vector<Read>& reads, std::size_t bodyLength) {
    const Bytes expected = assembled(reads);
    CSCLIENT_FUZZ_CHECK(message.getType() == typeOf(com_tesk::fuzz::wordAt(reads[0].given, 8)));
    CSCLIENT_FUZZ_CHECK(reads.size() > 2 || message.size() == bodyLength);
    CSCLIENT_FUZZ_CHECK(std::equal(message.begin(), message.end(), expected.begin(), expected.end(),
                                   [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }));
}

/// Checks one call of the engine's `receiveMessage`, by the reads that it made.
void checkTurn(const FrameEngine& engine) {
    const std::vector<Read>& reads = engine.split->reads;
    CSCLIENT_FUZZ_CHECK(!engine.holdsAnyLock());
    CSCLIENT_FUZZ_CHECK(!reads.empty() && reads[0].asked == kHeaderLength && reads[0].sizeBefore == 0);
    if (!isGoodHeader(reads[0])) {
        const bool isQuiet = reads[0].result == -2;
        CSCLIENT_FUZZ_CHECK(reads.size() == 1 && engine.bodies.empty());
        CSCLIENT_FUZZ_CHECK(engine.getState() == (isQuiet ? CSClient::STATE_READY : CSClient::STATE_DISCONNECTING));
        return;
    }
    const std::size_t bodyLength = com_tesk::fuzz::wordAt(reads[0].given, 0) - kHeaderLength;
    std::size_t received = 0;
    bool hasFailed = false;
    for (std::size_t i = 1; i < reads.size(); ++i) {
        CSCLIENT_FUZZ_CHECK(!hasFailed && reads[i].asked == bodyLength - received);
        received += reads[i].given.size();
        hasFailed = reads[i].threw || reads[i].result == 0 || reads[i].result == -1;
    }
    const bool isWhole = received == bodyLength;
    CSCLIENT_FUZZ_CHECK(isWhole != hasFailed);
    CSCLIENT_FUZZ_CHECK(engine.bodies.size() == (isWhole ? 1U : 0U));
    CSCLIENT_FUZZ_CHECK(engine.getState() == (isWhole ? CSClient::STATE_READY : CSClient::STATE_DISCONNECTING));
    if (isWhole) {
        checkDelivery(engine.bodies[0], reads, bodyLength);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    FrameEngine engine(input);
    CSCLIENT_FUZZ_CHECK(engine.getState() == CSClient::STATE_READY);
    while (engine.getState() == CSClient::STATE_READY) {
        engine.split->reads.clear();
        engine.bodies.clear();
        engine.receiveMessage();
        checkTurn(engine);
    }
    return 0;
}
