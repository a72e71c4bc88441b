// The smallest useful client. It measures how much the static library adds to a program. Without
// CSCLIENT_FOOTPRINT_CLIENT, this is the same program without the client.

#ifdef CSCLIENT_FOOTPRINT_CLIENT

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"

int main() {
    using com_tesk::CSClient;
    com_tesk::SimClient client(1, CSClient::OPTION_AUTO_RECONNECT);
    client.changeCommsInterface(new com_tesk::CSCommsInterfaceTCPBuffered);
    client.registerInputParameter({"input", CSClient::TYPE_FLOAT, 1});
    client.registerOutputParameter({"output", CSClient::TYPE_FLOAT});
    client.open("127.0.0.1", 55580, nullptr);
    client.waitForConnectionState(CSClient::STATE_READY, 5);
    client.publishParameter({"output", {1.0F}, CSClient::TYPE_FLOAT});
    client.close();
}

#else

#include <string>
#include <vector>

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv, argv + argc);
    return words.empty() ? 1 : 0;
}

#endif
