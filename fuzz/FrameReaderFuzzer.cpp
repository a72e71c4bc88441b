// The engine's frame reader, fed through a transport that splits the stream. The input: a count, that many bytes that
// each say what one read of the transport does, and the stream, at whose end the transport reports that it was closed.

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

/// What the transport lets a message grow to. Beyond it there is no memory, as on a small machine.
constexpr std::size_t kMemory = std::size_t{1} << 20U;

/// What one read does, by its byte in the input: up to `FEWEST_SPECIAL` the most bytes that it gives.
enum Step : std::uint8_t { AS_ASKED = 0, FEWEST_SPECIAL = 0xF0, RESET = 0xFD, CLOSED = 0xFE, TIMEOUT = 0xFF };

/// One read that the engine has made.
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

    /// As the TCP transport: grows first, reads second, and cuts back to `count` after a short read.
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
            // Once more on the same connection it is the same error.
            errno = ECONNRESET;
            return -1;
        }
        if (step == CLOSED) {
            return 0;
        }
        given = stream.bytes(step == AS_ASKED || step >= FEWEST_SPECIAL ? count : std::min<std::size_t>(count, step));
        return static_cast<int>(given.size());
    }

    Bytes scriptBytes;
    Input script;
    Input& stream;
};

/// An engine that connects without a worker and keeps the bodies that it is handed.
class FrameEngine : public com_tesk::test::OpenEngine {
  public:
    explicit FrameEngine(Input& input) : OpenEngine(1, CSClient::OPTION_SILENT), split(new SplittingTransport(input)) {
        changeCommsInterface(split);
        pretendState(CSClient::STATE_CONNECTING);
        startConnection();
    }

    void handleReceivedMessage(const RawMessage& message) override {
        FUZZ_CHECK(!holdsAnyLock());
        bodies.push_back(message);
    }

    /// Owned by the engine.
    SplittingTransport* split;
    std::vector<RawMessage> bodies;
};

RawMessage::Type typeOf(std::uint32_t kind) {
    return kind == 0 ? RawMessage::DATA : kind == 3 ? RawMessage::CONTROL : RawMessage::INVALID;
}

/// Whether a read of a header is one behind which a body follows.
bool isGoodHeader(const Read& read) {
    return !read.threw && read.result == static_cast<int>(kHeaderLength) &&
           com_tesk::fuzz::wordAt(read.given, 4) == kHeaderLength &&
           com_tesk::fuzz::wordAt(read.given, 0) > kHeaderLength;
}

/// What the reads of a body must leave behind: each grows the message by what it asks for, a short one cuts it back.
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
    FUZZ_CHECK(message.getType() == typeOf(com_tesk::fuzz::wordAt(reads[0].given, 8)));
    FUZZ_CHECK(reads.size() > 2 || message.size() == bodyLength);
    FUZZ_CHECK(std::equal(message.begin(), message.end(), expected.begin(), expected.end(),
                          [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }));
}

/// What one turn of the engine's loop did, judged by the reads that it made.
void checkTurn(const FrameEngine& engine) {
    const std::vector<Read>& reads = engine.split->reads;
    FUZZ_CHECK(!engine.holdsAnyLock());
    FUZZ_CHECK(!reads.empty() && reads[0].asked == kHeaderLength && reads[0].sizeBefore == 0);
    if (!isGoodHeader(reads[0])) {
        const bool isQuiet = reads[0].result == -2;
        FUZZ_CHECK(reads.size() == 1 && engine.bodies.empty());
        FUZZ_CHECK(engine.getState() == (isQuiet ? CSClient::STATE_READY : CSClient::STATE_DISCONNECTING));
        return;
    }
    const std::size_t bodyLength = com_tesk::fuzz::wordAt(reads[0].given, 0) - kHeaderLength;
    std::size_t received = 0;
    bool hasFailed = false;
    for (std::size_t i = 1; i < reads.size(); ++i) {
        FUZZ_CHECK(!hasFailed && reads[i].asked == bodyLength - received);
        received += reads[i].given.size();
        hasFailed = reads[i].threw || reads[i].result == 0 || reads[i].result == -1;
    }
    const bool isWhole = received == bodyLength;
    FUZZ_CHECK(isWhole != hasFailed);
    FUZZ_CHECK(engine.bodies.size() == (isWhole ? 1U : 0U));
    FUZZ_CHECK(engine.getState() == (isWhole ? CSClient::STATE_READY : CSClient::STATE_DISCONNECTING));
    if (isWhole) {
        checkDelivery(engine.bodies[0], reads, bodyLength);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    FrameEngine engine(input);
    FUZZ_CHECK(engine.getState() == CSClient::STATE_READY);
    while (engine.getState() == CSClient::STATE_READY) {
        engine.split->reads.clear();
        engine.bodies.clear();
        engine.receiveMessage();
        checkTurn(engine);
    }
    return 0;
}
