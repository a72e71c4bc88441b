#pragma once

#include <random>
#include <vector>

#include "client/CSClient.h"

namespace com_tesk::test {

/// What an operation needs beside the client.
struct Surroundings {
    std::mt19937_64& random;
    unsigned int port;               ///< of the host
    CSClient::CallbackIface* spare;  ///< an interface to add and remove
};

/// One public operation of a client, with arguments of which some are refused.
struct Operation {
    const char* name;
    bool opensOrCloses;  ///< not allowed while a change of state is announced
    void (*call)(CSClient& client, const Surroundings& with);
};

/// Every public operation of a client.
const std::vector<Operation>& allOperations();

}  // namespace com_tesk::test
