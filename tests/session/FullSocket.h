#pragma once

namespace com_tesk::session_test {

/// While it exists, sockets behave as with a full send buffer: of the sends that must not block, the first takes one
/// byte, and the others take nothing until `release`. At most one exists at a time.
///
/// It replaces `send` in this program. The hosts of the tests send without MSG_DONTWAIT, and are not affected.
class FullSocket {
  public:
    FullSocket();
    FullSocket(const FullSocket&) = delete;
    FullSocket& operator=(const FullSocket&) = delete;
    ~FullSocket();

    /// Lets sends take everything from now on.
    static void release();

    /// Waits until a send was refused. Returns false when the bound passes first.
    static bool waitUntilRefused();
};

}  // namespace com_tesk::session_test
