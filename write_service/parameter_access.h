#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Logs that `path` is to become `value`.
void logSetting(const ParameterPath& path, const std::string& value);

/// Reads `path` as it will be after the request: the pending value, or else the daemon's. False on
/// a transport failure, with `value` as `ConfigClient::get` leaves it.
bool getEffectiveValue(ConfigClient& client, const ChangeSet& changes, const ParameterPath& path,
                       std::string& value);

/// Records and logs `newValue` for `path` if the daemon's stored value, never the pending one,
/// calls for it: if it differs from `newValue`, or, with `expected` not empty, if it equals
/// `expected`. False on a transport failure, with nothing recorded.
bool setIfChanged(ConfigClient& client, ChangeSet& changes, const ParameterPath& path,
                  const std::string& newValue, const std::string& expected);
