#pragma once

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Records the fixed value of each pinned parameter whose stored value has drifted. The stored, not
/// the pending value decides: a user's write of a parameter that has not drifted goes through, and
/// lasts until the next write of any parameter.
void applyFixedSettings(ConfigClient& client, ChangeSet& changes);
