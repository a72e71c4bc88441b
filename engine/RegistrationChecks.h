#pragma once

#include <string>

/// Checks of registration and publishing, and the diagnostics for refused records on standard error.
namespace com_tesk::checks {

/// True when a name and its terminating zero do not fit a name field.
bool isTooLong(const std::string& name);

/// Reports an invalid type of an input or of a published record. Intended: the same text for both. Programs match it.
void reportInvalidSubscriptionType(const std::string& name);
void reportInvalidOutputType(const std::string& name);
void reportTooLong(const std::string& name);
void reportAlreadyRegistered(const std::string& name);
void reportRequestedTwice(const std::string& name);
void reportUnknown(const std::string& name);

}  // namespace com_tesk::checks
