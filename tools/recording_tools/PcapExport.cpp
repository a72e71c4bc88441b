#include "tools/recording_tools/PcapExport.h"

#include <algorithm>
#include <map>

#include "tools/recording_tools/Frames.h"
#include "tools/recording_tools/Packets.h"
#include "tools/recording_tools/Texts.h"

namespace com_tesk::recording {

namespace {

constexpr std::uint32_t kThisMachine = 0x7F00'0001;
constexpr std::uint16_t kUsualPort = 55'580;

class PcapExport {
  public:
    explicit PcapExport(const Header& header)
        : began(beginOf(header)), host(endpointOf(header.host, {kThisMachine, kUsualPort})) {
        appendCaptureHeader(capture);
    }

    void take(const Entry& entry) {
        time = began + entry.time;
        if (const auto* const state = std::get_if<State>(&entry.content)) {
            begin(*state);
        } else if (const auto* const lost = std::get_if<Lost>(&entry.content)) {
            end(entry, *lost);
        } else if (entry.connection != 0) {
            pass(entry);
        }
    }

    std::string capture;

  private:
    struct Connection {
        Connection(Endpoint client, Endpoint host, std::uint32_t number) : tcp(client, host, number) {}

        TcpConversation tcp;
        Frames frames;
        bool hasBytes = false;  ///< It was recorded with its bytes.
    };

    /// The ports of clients without a known address begin here, so that connections differ.
    static Endpoint unknownClient(std::uint32_t number) {
        constexpr std::uint32_t kFirst = 49'152;
        constexpr std::uint32_t kCount = 16'384;
        return {kThisMachine, static_cast<std::uint16_t>(kFirst + number % kCount)};
    }

    Connection& connectionOf(std::uint32_t number, const std::string& client = {}) {
        const auto found = connections.find(number);
        if (found != connections.end()) {
            return found->second;
        }
        Connection& added =
            connections.try_emplace(number, endpointOf(client, unknownClient(number)), host, number).first->second;
        added.tcp.open(capture, time);
        return added;
    }

    void send(Connection& connection, const Entry& entry) {
        if (const auto sent = connection.frames.of(entry)) {
            connection.tcp.send(capture, time, sent->side, sent->bytes.data(), sent->bytes.size());
        }
    }

    /// Connections that are not known yet were there before the recording.
    void begin(const State& state) {
        for (const State::Connection& known : state.connections) {
            if (connections.count(known.number) != 0) {
                continue;
            }
            Connection& connection = connectionOf(known.number);
            connection.frames.setSimulatorId(known.simulatorId);
            if (!known.inputs.empty()) {
                send(connection, Entry{{}, known.number, Confirmation{Direction::INPUTS, known.inputs}});
            }
            if (!known.outputs.empty()) {
                send(connection, Entry{{}, known.number, Confirmation{Direction::OUTPUTS, known.outputs}});
            }
        }
    }

    void pass(const Entry& entry) {
        const auto* const connected = std::get_if<Connected>(&entry.content);
        Connection& connection = connectionOf(entry.connection, connected != nullptr ? connected->client : "");
        if (const auto* const raw = std::get_if<Raw>(&entry.content)) {
            connection.hasBytes = true;
            const host::Bytes bytes(raw->bytes.begin(), raw->bytes.end());
            connection.tcp.send(capture, time, raw->side, bytes.data(), bytes.size());
        } else if (!connection.hasBytes) {
            send(connection, entry);
        }
    }

    void end(const Entry& entry, const Lost& lost) {
        TcpConversation& tcp = connectionOf(entry.connection).tcp;
        if (lost.why == "closed") {
            tcp.close(capture, time, lost.side);
        } else {
            tcp.reset(capture, time, lost.side);
        }
        connections.erase(entry.connection);
    }

    const CaptureTime began;
    const Endpoint host;
    CaptureTime time{};
    std::map<std::uint32_t, Connection> connections;
};

}  // namespace

void writePcap(Reading& reading, const Write& write) {
    constexpr std::size_t kPieceSize = 65'536;
    PcapExport conversion(reading.header());
    while (const auto entry = reading.next()) {
        conversion.take(*entry);
        if (conversion.capture.size() >= kPieceSize) {
            write(conversion.capture);
            conversion.capture.clear();
        }
    }
    write(conversion.capture);
}

}  // namespace com_tesk::recording
