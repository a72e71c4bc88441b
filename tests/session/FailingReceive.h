#pragma once

namespace com_tesk::session_test {

/// While it exists, `recv` fails with an error on all threads but the one that created it. A call that already waits
/// is completed first. At most one exists at a time.
///
/// It causes errors that a peer on this machine cannot cause. It replaces `recv` in this program.
class FailingReceive {
  public:
    explicit FailingReceive(int error);
    FailingReceive(const FailingReceive&) = delete;
    FailingReceive& operator=(const FailingReceive&) = delete;
    ~FailingReceive();
};

}  // namespace com_tesk::session_test
