#include "host/StopSignals.h"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <system_error>

namespace com_tesk {

class StopSignals::Impl {
  public:
    void wait() {
        signals.async_wait([](const std::error_code&, int) {});
        context.run();
    }

  private:
    asio::io_context context{1};
    asio::signal_set signals{context, SIGINT, SIGTERM};
};

StopSignals::StopSignals() : impl(std::make_unique<Impl>()) {}

StopSignals::~StopSignals() = default;

void StopSignals::wait() {
    impl->wait();
}

}  // namespace com_tesk
