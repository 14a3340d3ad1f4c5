#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Records the broadcast address that follows from the written IP address or subnet mask (`name`
/// tells which) and the stored other one. Records nothing when either is no IPv4 address.
void updateBroadcastAddress(ConfigClient& client, ChangeSet& changes, ParameterPath name,
                            std::string value);
