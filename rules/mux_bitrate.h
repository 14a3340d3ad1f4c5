#pragma once

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Records the total bitrate of each transport-stream multiplexer: the scaled, limited sum of what
/// its components carry. One without a video encoder, or whose last is not on H.264, keeps its own.
/// A failed read ends the rule, and what is recorded until then stays.
void applyMuxBitrateRule(ConfigClient& client, ChangeSet& changes);
