#include "bench/CountedCalls.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<unsigned long> waitsAndReads{0};
std::atomic<unsigned long> writes{0};

}  // namespace

// These take the place of the system library's for everything in the program that is linked statically.

extern "C" ssize_t read(int descriptor, void* target, size_t size) {
    ++waitsAndReads;
    return syscall(SYS_read, descriptor, target, size);
}

extern "C" ssize_t recv(int descriptor, void* target, size_t size, int flags) {
    ++waitsAndReads;
    return syscall(SYS_recvfrom, descriptor, target, size, flags, nullptr, nullptr);
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
    ++waitsAndReads;
    const timespec timeout{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    return static_cast<int>(syscall(SYS_ppoll, descriptors, count, milliseconds < 0 ? nullptr : &timeout, nullptr, 0));
}

extern "C" ssize_t write(int descriptor, const void* source, size_t size) {
    ++writes;
    return syscall(SYS_write, descriptor, source, size);
}

extern "C" ssize_t send(int descriptor, const void* source, size_t size, int flags) {
    ++writes;
    return syscall(SYS_sendto, descriptor, source, size, flags, nullptr, 0);
}

namespace com_tesk::bench {

unsigned long countedReads() {
    return waitsAndReads;
}

unsigned long countedWrites() {
    return writes;
}

}  // namespace com_tesk::bench
