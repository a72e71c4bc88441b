// The loopback host's side of the wire, without its sockets. The input: a count, as many bytes that each give the size
// of a piece, and the stream of frames that two clients send alternately.

#include <algorithm>
#include <cctype>
#include <string>

#include "fuzz/Fuzzing.h"
#include "host/FrameReader.h"
#include "host/HostCore.h"

using com_tesk::HostEvent;
using com_tesk::HostOptions;
using com_tesk::HostValue;
using com_tesk::fuzz::Bytes;
using com_tesk::fuzz::Input;
using namespace com_tesk::host;

namespace {

constexpr std::size_t kHeaderLength = 32;

/// Checks the frames that the core sends and the events that it reports.
class CheckingOutlet : public HostOutlet {
  public:
    void send(ClientNumber client, com_tesk::host::Bytes frame) override {
        CSCLIENT_FUZZ_CHECK(client == 1 || client == 2);
        FrameReader reader;
        const std::vector<Frame> frames = reader.feed(frame.data(), frame.size());
        CSCLIENT_FUZZ_CHECK(frames.size() == 1 && !reader.inMidFrame() && reader.error().empty());
        const com_tesk::host::Bytes& body = frames[0].body;
        CSCLIENT_FUZZ_CHECK(body.size() >= 24 || (body.size() == 20 && body[11] != 3));
        CSCLIENT_FUZZ_CHECK(com_tesk::fuzz::wordAt(body, 4) == body.size());
        CSCLIENT_FUZZ_CHECK(body.size() == expectedSize(body));
    }

    void report(HostEvent event) override {
        const std::string line = describe(event);
        CSCLIENT_FUZZ_CHECK(!line.empty());
        CSCLIENT_FUZZ_CHECK(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; }));
    }

  private:
    static std::size_t expectedSize(const com_tesk::host::Bytes& body) {
        switch (body[10] << 8U | body[11]) {
            case 0x0101:
                return 20 + std::size_t{52} * com_tesk::fuzz::wordAt(body, 16);
            case 0x0102:
                return 20 + std::size_t{48} * com_tesk::fuzz::wordAt(body, 16);
            case 0x0003:
                return 24 + std::size_t{12} * com_tesk::fuzz::wordAt(body, 20);
            case 0x0106:
                return 152;
            default:
                return 0;
        }
    }
};

/// Returns the frames of a stream, split here independently of the reader. `isLost`: an error ends the stream. `isCut`:
/// the stream does not end with a whole frame.
std::vector<Frame> framesIn(const Bytes& stream, bool& isLost, bool& isCut) {
    std::vector<Frame> frames;
    std::size_t at = 0;
    isLost = false;
    while (stream.size() - at >= kHeaderLength) {
        const std::size_t length = com_tesk::fuzz::wordAt(stream, at);
        if (com_tesk::fuzz::wordAt(stream, at + 4) != kHeaderLength || length < kHeaderLength ||
            length > std::size_t{16} * 1024 * 1024) {
            isLost = true;
            break;
        }
        if (stream.size() - at < length) {
            break;
        }
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        frames.push_back({com_tesk::fuzz::wordAt(stream, at + 8),
                          Bytes(begin + kHeaderLength, begin + static_cast<std::ptrdiff_t>(length))});
        at += length;
    }
    isCut = at < stream.size();
    return frames;
}

/// Returns the frames that a reader finds in the stream. The input gives the sizes of the pieces.
std::vector<Frame> readInPieces(FrameReader& reader, const Bytes& pieces, const Bytes& stream) {
    std::vector<Frame> frames;
    std::size_t at = 0;
    for (std::size_t i = 0; at < stream.size(); ++i) {
        const std::size_t left = stream.size() - at;
        const std::size_t size = i < pieces.size() ? std::min<std::size_t>(pieces[i], left) : left;
        for (Frame& frame : reader.feed(stream.data() + at, size)) {
            frames.push_back(std::move(frame));
        }
        at += size;
    }
    return frames;
}

void checkState(const SharedState& state) {
    state.read([](const HostState& s) {
        for (const auto& nameAndClients : s.subscribers) {
            CSCLIENT_FUZZ_CHECK(!nameAndClients.second.empty() && nameAndClients.second.size() <= 2);
        }
        return 0;
    });
}

void serve(const std::vector<Frame>& frames) {
    HostOptions options;
    options.initialValues.emplace("ALT", HostValue::real(12.5F));
    SharedState state;
    CheckingOutlet outlet;
    HostCore core(options, state, outlet);
    core.addClient(1);
    core.addClient(2);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        core.handle(1 + i % 2, frames[i]);
        checkState(state);
    }
    core.setValues({{"ALT", HostValue::integer(-2)}});
    core.removeClient(1);
    checkState(state);
    core.removeClient(2);
    state.read([](const HostState& s) {
        CSCLIENT_FUZZ_CHECK(s.clients == 0 && s.subscribers.empty());
        CSCLIENT_FUZZ_CHECK(s.values.at("ALT") == HostValue::integer(-2));
        return 0;
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Bytes pieces = input.countedBytes();
    const Bytes stream = input.rest();

    bool isLost = false;
    bool isCut = false;
    const std::vector<Frame> expected = framesIn(stream, isLost, isCut);
    FrameReader reader;
    const std::vector<Frame> frames = readInPieces(reader, pieces, stream);

    CSCLIENT_FUZZ_CHECK(reader.error().empty() != isLost);
    CSCLIENT_FUZZ_CHECK(reader.inMidFrame() == isCut);
    CSCLIENT_FUZZ_CHECK(
        std::equal(frames.begin(), frames.end(), expected.begin(), expected.end(),
                   [](const Frame& a, const Frame& b) { return a.kind == b.kind && a.body == b.body; }));
    serve(frames);
    return 0;
}
