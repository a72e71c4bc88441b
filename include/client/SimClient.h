#pragma once

#include <memory>

#include "client/CSClient.h"
#include "message/Export.h"

namespace com_tesk {

/// The client to create: a `CSClient` that speaks the simulator protocol.
class CSCLIENT_EXPORT SimClient : public CSClient {
  public:
    /// Creates a client without opening a connection. The state is `STATE_DISCONNECTED` until `open`.
    /// @param simulatorId  identifies this client to the host: 0 to 32767. It is not checked. The host may assign
    ///                     another.
    /// @param options      `OPTION_AUTO_RECONNECT` and `OPTION_SILENT`, or-ed; other bits are kept without effect.
    SimClient(unsigned int simulatorId, unsigned int options);
    /// As above, with a transport: `SimClient(1, 0, std::make_unique<CSCommsInterfaceTCPBuffered>())`. Null keeps the
    /// standard transport.
    SimClient(unsigned int simulatorId, unsigned int options, std::unique_ptr<CSCommsInterfaceTCP> transport);
    /// As `~CSClient`.
    ~SimClient() override;
};

}  // namespace com_tesk
