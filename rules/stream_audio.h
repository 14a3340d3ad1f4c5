#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Carries the audio encoder chosen for any RTSP stream (a bare number, or "off") over to RTMP
/// stream 1 and to the audio component of multiplexer 1.
void applyStreamAudioRule(ConfigClient& client, ChangeSet& changes, std::string value);
