#include "comms/CSCommsInterfaceTCPBuffered.h"

#include <cerrno>

#include "comms/BufferedConnection.h"

namespace com_tesk {

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered() : CSCommsInterfaceTCPBuffered(Options()) {}

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered(const Options& initialOptions)
    : CSCommsInterfaceTCPBuffered(initialOptions, Bounds()) {}

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered(const Options& initialOptions, const Bounds& initialBounds)
    : CSCommsInterfaceTCP(initialOptions),
      buffered(std::make_unique<BufferedConnection>(connection(), initialBounds)) {}

CSCommsInterfaceTCPBuffered::~CSCommsInterfaceTCPBuffered() = default;

void CSCommsInterfaceTCPBuffered::setInterrupted(bool interrupted) {
    buffered->setInterrupted(interrupted);
}

bool CSCommsInterfaceTCPBuffered::openConnection(unsigned int address, unsigned int port) {
    close();
    buffered->beginReading();
    const bool isOpened = buffered->open(address, port);
    if (!isOpened) {
        const int reason = errno;
        close();
        errno = reason;
    }
    return isOpened;
}

int CSCommsInterfaceTCPBuffered::close() {
    return buffered->close();
}

int CSCommsInterfaceTCPBuffered::readMessage(unsigned int count, RawMessage& message) {
    return buffered->read(count, message);
}

int CSCommsInterfaceTCPBuffered::writeMessage(const RawMessage& message) {
    return buffered->write(message);
}

}  // namespace com_tesk
