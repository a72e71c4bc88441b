#pragma once

#include <arpa/inet.h>

#include <cstdint>

#include "tests/support/OwnAddress.h"

namespace com_tesk::mqtt_test {

/// Returns the socket address of a port of the process's own address. The system chooses the port for 0.
inline sockaddr_in ownPlace(std::uint16_t port) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    inet_pton(AF_INET, test::ownAddress().c_str(), &place.sin_addr);
    return place;
}

}  // namespace com_tesk::mqtt_test
