#include "bench/CountedCalls.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <ctime>

namespace {

// One counter per thread: a shared counter would cost as much as the measured work.
thread_local unsigned long waitsAndReads = 0;
thread_local unsigned long writes = 0;

}  // namespace

// These replace the system library's functions for all statically linked code of the program.

extern "C" ssize_t read(int descriptor, void* target, size_t size) {
    ++waitsAndReads;
    return syscall(SYS_read, descriptor, target, size);
}

extern "C" ssize_t readv(int descriptor, const iovec* targets, int count) {
    ++waitsAndReads;
    return syscall(SYS_readv, descriptor, targets, count);
}

extern "C" ssize_t recv(int descriptor, void* target, size_t size, int flags) {
    ++waitsAndReads;
    return syscall(SYS_recvfrom, descriptor, target, size, flags, nullptr, nullptr);
}

extern "C" ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
    ++waitsAndReads;
    return syscall(SYS_recvmsg, descriptor, message, flags);
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

extern "C" ssize_t writev(int descriptor, const iovec* sources, int count) {
    ++writes;
    return syscall(SYS_writev, descriptor, sources, count);
}

extern "C" ssize_t send(int descriptor, const void* source, size_t size, int flags) {
    ++writes;
    return syscall(SYS_sendto, descriptor, source, size, flags, nullptr, 0);
}

extern "C" ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
    ++writes;
    return syscall(SYS_sendmsg, descriptor, message, flags);
}

namespace com_tesk::bench {

unsigned long countedReads() {
    return waitsAndReads;
}

unsigned long countedWrites() {
    return writes;
}

}  // namespace com_tesk::bench
