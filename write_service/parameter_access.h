#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Logs the new `value` of `path`.
void logSetting(const ParameterPath& path, const std::string& value);

/// Reads `path` as it will be after the request: the pending value, or else the daemon's. False on
/// a transport failure, with `value` as `ConfigClient::get` leaves it.
bool getEffectiveValue(ConfigClient& client, const ChangeSet& changes, const ParameterPath& path,
                       std::string& value);

/// Compares the daemon's stored value of `path`, never the pending one. Records and logs `newValue`
/// if the stored value differs from it; with `expected`, only if the stored value is `expected`.
/// False on a transport failure, with nothing recorded.
bool setIfChanged(ConfigClient& client, ChangeSet& changes, const ParameterPath& path,
                  const std::string& newValue, const std::string& expected = {});
