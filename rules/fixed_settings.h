#pragma once

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Records the fixed value of each pinned parameter whose stored value has drifted. The stored, not
/// the pending value decides: a user's own write of a pinned parameter lasts until the next write.
void applyFixedSettings(ConfigClient& client, ChangeSet& changes);
