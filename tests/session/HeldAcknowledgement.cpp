#include "tests/session/HeldAcknowledgement.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <cstdarg>

#include "tests/support/SystemFunctions.h"

namespace com_tesk::session_test {

namespace {

std::atomic<HeldAcknowledgement*> held{nullptr};

}  // namespace

HeldAcknowledgement::HeldAcknowledgement() {
    held = this;
}

HeldAcknowledgement::~HeldAcknowledgement() {
    held = nullptr;
}

CSCLIENT_TEST_REPLACES int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    HeldAcknowledgement* const holder = request == SIOCOUTQ ? held.load() : nullptr;
    if (holder != nullptr) {
        *static_cast<int*>(argument) = holder->query();
        return 0;
    }
    static const auto real = test::systemFunction<decltype(ioctl)>("ioctl");
    return real(descriptor, request, argument);
}

}  // namespace com_tesk::session_test
