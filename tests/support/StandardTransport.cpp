#include "tests/support/TransportUnderTest.h"

namespace com_tesk {
namespace test {

std::unique_ptr<Carrier> newCarrier() {
    return nullptr;
}

CSCommsInterfaceTCP* newTransportUnderTest() {
    return nullptr;
}

}  // namespace test
}  // namespace com_tesk
