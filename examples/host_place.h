// Where the host is: as two arguments say, otherwise as CSX_HOST=ADDRESS:PORT says, otherwise here.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <string>

struct HostPlace {
    HostPlace(int argc, char** argv) {
        const char* const variable = std::getenv("CSX_HOST");
        const std::string host = variable != nullptr ? variable : "";
        const std::string text = argc == 3 ? std::string(argv[1]) + ':' + argv[2] : host;
        const std::size_t colon = text.find(':');
        address = text.empty() ? address : text.substr(0, colon);
        port = colon == std::string::npos ? port : static_cast<std::uint16_t>(std::stoul(text.substr(colon + 1)));
    }
    std::string address = "127.0.0.1";
    std::uint16_t port = 55580;
};
