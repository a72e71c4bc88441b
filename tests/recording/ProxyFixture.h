#pragma once

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/recording/TemporaryDirectory.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/Waiting.h"
#include "tools/recording/EntryText.h"
#include "tools/recording/Proxy.h"
#include "tools/recording/Recording.h"

namespace com_tesk::recording_test {

using test::Bytes;
using test::ScriptedHost;
using Peer = ScriptedHost::Peer;

/// A proxy on a thread, between a scripted host and clients of the test.
class ProxyOf : public ::testing::Test {
  protected:
    void begin(bool isRaw = false) {
        recording::Header header;
        header.recorder = "test";
        header.mode = "proxy";
        const recording::RecordingFile::Say ignore = [](const std::string&) {};
        recorder = std::make_unique<recording::Recorder>(
            recording::Recorder::Options{{directory.path("log.jsonl")}, isRaw}, header, ignore);
        proxy = std::make_unique<recording::Proxy>(
            recording::Proxy::Address{"127.0.0.1", 0},
            recording::Proxy::Address{"127.0.0.1", static_cast<std::uint16_t>(host.port())}, ignore);
        const std::string place = proxy->place();
        port = static_cast<std::uint16_t>(std::stoul(place.substr(place.rfind(':') + 1)));
        thread = std::thread([this] { proxy->run(*recorder, stop, std::chrono::steady_clock::time_point::max()); });
    }
    ~ProxyOf() override {
        end();
        close(stop);
    }

    /// Ends the proxy and its recording.
    void end() {
        if (thread.joinable()) {
            eventfd_write(stop, 1);
            thread.join();
            recorder->stop();
        }
    }

    /// Connects a client to the proxy.
    std::unique_ptr<Peer> connect() const {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = ScriptedHost::address();
        EXPECT_EQ(::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return std::make_unique<Peer>(descriptor);
    }

    /// True as soon as the recording contains a text.
    bool hasRecorded(const std::string& text) const {
        return test::waitUntil([&] { return directory.read("log.jsonl").find(text) != std::string::npos; });
    }

    /// Returns the lines after the header and the first state, without their times and without the ports of clients. Expects that
    /// all can be read.
    std::string recorded() {
        end();
        recording::Recording log(directory.path("log.jsonl"));
        std::string text;
        while (const auto entry = log.next()) {
            std::string line;
            recording::appendLine(line, {recording::Time(0), entry->connection, entry->content});
            text += line.substr(std::string(R"({"t":0.000000,"type":)").size());
        }
        EXPECT_EQ(log.flaws(), std::vector<std::string>{});
        for (std::size_t at = 0; (at = text.find(R"("client":"127.0.0.1:)", at)) != std::string::npos; ++at) {
            const std::size_t digits = at + std::string(R"("client":"127.0.0.1:)").size();
            text.erase(digits, text.find('"', digits) - digits);
        }
        const std::size_t first = text.find("\"protocol\":0}\n");
        return first == std::string::npos ? "no state: " + text : text.substr(first + 14);
    }

    recording_test::TemporaryDirectory directory;
    ScriptedHost host;
    const int stop = eventfd(0, EFD_CLOEXEC);
    std::unique_ptr<recording::Recorder> recorder;
    std::unique_ptr<recording::Proxy> proxy;
    std::uint16_t port = 0;
    std::thread thread;
};

/// True when the connection ends in order; false when it is reset, or nothing happens.
inline bool endsInOrder(Peer& peer) {
    if (peer.isQuietFor(ScriptedHost::kBound)) {
        return false;
    }
    errno = 0;
    return peer.receive(1).empty() && errno == 0;
}

/// Returns bytes that differ from each other in any place.
inline Bytes pattern(std::size_t size, unsigned int seed) {
    Bytes bytes(size);
    for (unsigned char& byte : bytes) {
        seed = seed * 1'664'525U + 1'013'904'223U;
        byte = static_cast<unsigned char>(seed >> 24U);
    }
    return bytes;
}

}  // namespace com_tesk::recording_test
