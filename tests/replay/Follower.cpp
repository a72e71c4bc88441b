// A program for replays. It follows a value of the host: follower [changed | missing | extra | late | exits | half]
//
// `position` is twice `command`, and `sector` its remainder of a division by 3. At the command -1 it connects again.
#include <poll.h>
#include <session/Session.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "examples/host_place.h"

using namespace std::chrono_literals;

namespace {

class Follower {
  public:
    Follower(com_tesk::Session& ownSession, std::string ownFault)
        : session(ownSession),
          fault(std::move(ownFault)),
          position(session.output<float>("position", com_tesk::Delivery::EVERY)) {
        if (fault != "half") {
            sector = session.output<std::int32_t>("sector", com_tesk::Delivery::EVERY);
            hasSector = true;
        }
        session.input<float>("command", com_tesk::Delivery::EVERY).onChange([this](const auto& command) {
            follow(command.value);
        });
    }

    bool isToConnectAgain() { return std::exchange(wantsConnection, false); }

  private:
    void follow(float command) {
        const bool isFaulty = command == 3.0F;
        if (isFaulty && fault == "exits") {
            std::exit(3);
        }
        if (isFaulty && fault == "missing") {
            return;
        }
        if (isFaulty && fault == "late") {
            std::this_thread::sleep_for(600ms);
        }
        if (isFaulty && fault == "extra") {
            position.set(77.0F);
        }
        position.set(isFaulty && fault == "changed" ? 6.5F : command * 2);
        if (hasSector) {
            sector.set(static_cast<std::int32_t>(command) % 3);
        }
        if (command == -1.0F && !hasClosed) {
            hasClosed = true;
            wantsConnection = true;
        }
    }

    com_tesk::Session& session;
    const std::string fault;
    com_tesk::Output<float> position;
    com_tesk::Output<std::int32_t> sector;
    bool hasSector = false;
    bool hasClosed = false;
    bool wantsConnection = false;
};

}  // namespace

int main(int argc, char** argv) {
    const HostPlace place(0, argv);
    com_tesk::Session::Options options;
    options.host = place.address;
    options.port = place.port;
    options.retry = 20ms;
    options.log = [](auto, auto) {};
    com_tesk::Session session(options);
    Follower follower(session, argc > 1 ? argv[1] : "");
    session.start();
    pollfd waiting{session.descriptor(), POLLIN, 0};
    while (poll(&waiting, 1, -1) == 1) {
        session.dispatch();
        if (follower.isToConnectAgain()) {
            session.stop(1s);
            session.start();
        }
    }
}
