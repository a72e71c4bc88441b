#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace com_tesk::bench {

/// Returns true when the shell finds the program.
bool isInstalled(const std::string& program);

/// Replaces this process by a program that prints nothing. Returns only when it cannot be started.
void runSilently(std::vector<std::string> arguments);

/// A process that ends with the object.
class Child {
  public:
    explicit Child(const std::function<void()>& run);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    pid_t id() const { return processId; }

  private:
    const pid_t processId;
};

/// A server on a port that was free a moment ago. The port is chosen here because not every server reports one that it
/// chooses itself.
class Server {
  public:
    /// Starts the program, and returns when it accepts connections. The argument "PORT" is replaced by its port.
    explicit Server(const std::vector<std::string>& arguments);

    unsigned int port() const { return ownPort; }

  private:
    const unsigned int ownPort;
    const Child process;
};

}  // namespace com_tesk::bench
