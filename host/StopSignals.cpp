#include "host/StopSignals.h"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <system_error>

namespace com_tesk {

class StopSignals::Impl {
  public:
    void wait() {
        m_signals.async_wait([](const std::error_code&, int) {});
        m_context.run();
    }

  private:
    asio::io_context m_context{1};
    asio::signal_set m_signals{m_context, SIGINT, SIGTERM};
};

StopSignals::StopSignals() : m_impl(std::make_unique<Impl>()) {}

StopSignals::~StopSignals() = default;

void StopSignals::wait() {
    m_impl->wait();
}

}  // namespace com_tesk
