#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {

std::unique_ptr<Carrier> newCarrier() {
    return nullptr;
}

CSCommsInterfaceTCP* newTransportUnderTest() {
    return nullptr;
}

}  // namespace com_tesk::test
