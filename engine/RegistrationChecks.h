#pragma once

#include <string>

/// What registration and publishing refuse a record for, and the lines that say so on standard error.
namespace com_tesk::checks {

/// Whether a name does not fit a name field with its terminating zero.
bool isTooLong(const std::string& name);

/// For inputs and, deliberately in the same words, for published records.
void reportInvalidSubscriptionType(const std::string& name);
void reportInvalidOutputType(const std::string& name);
void reportTooLong(const std::string& name);
void reportAlreadyRegistered(const std::string& name);
void reportRequestedTwice(const std::string& name);
void reportUnknown(const std::string& name);

}  // namespace com_tesk::checks
