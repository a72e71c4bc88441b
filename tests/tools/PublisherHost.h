#pragma once

#include <memory>
#include <string>

#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {

/// The port that the publisher connects to.
constexpr unsigned int kPublisherPort = 55580;

/// An address of 127.0.0.0/8 that belongs to this process alone: the publisher's port is fixed, so tests that run side
/// by side tell their hosts apart by address.
std::string ownAddress();

/// A host at `ownAddress` and the publisher's port that does what the test says.
class PublisherHost {
  public:
    PublisherHost();
    PublisherHost(const PublisherHost&) = delete;
    PublisherHost& operator=(const PublisherHost&) = delete;
    ~PublisherHost();

    /// The next connection; throws when none comes.
    std::unique_ptr<ScriptedHost::Peer> accept();

    /// From now on connections are refused.
    void stopListening();

  private:
    int listener;
};

/// Body of the request that registers one output.
std::string registrationOf(const std::string& name);

/// Frame that confirms one output.
std::string confirmationOf(unsigned int id, const std::string& name);

/// Body of the request that publishes one value, given as the hex text of its 32 bits.
std::string publicationOf(unsigned int id, const std::string& valueHex);

/// Body of the request that unregisters one output.
std::string unregistrationOf(unsigned int id);

/// Body of the version request that opens every connection.
extern const char* const kVersionRequest;

}  // namespace com_tesk::test
