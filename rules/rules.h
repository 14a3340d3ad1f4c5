#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

// The rules: each changes parameters besides the written one.
//
// A rule reads through `getEffectiveValue`, and so sees the write and the changes recorded before
// it. It reads through `ConfigClient::get` only if the stored value alone counts. It records
// through `setIfChanged`, which compares the stored value and not the pending one. It never puts,
// applies or saves. If a read fails, its value changes nothing; changes recorded before stay. A
// parameter unknown to the daemon reads as "No such file or directory", a value like any other.
// Recorded values are sent unchanged: each is one word, in double quotes if it holds white space.

/// For every write. Records the fixed value of each pinned parameter if its stored value has
/// drifted. The pending value does not count: a user's write to a pinned parameter goes through if
/// it has not drifted, and lasts until the next write of any parameter.
void applyFixedSettings(ConfigClient& client, ChangeSet& changes);

/// For every write. Records the total bitrate of each transport-stream multiplexer: the scaled,
/// limited sum of its components. A multiplexer keeps its bitrate unless its last video encoder
/// uses H.264.
void applyMuxBitrateRule(ConfigClient& client, ChangeSet& changes);

/// For every write. Sets both video encoders' overlay copy if "venc2" feeds multiplexer 2's first
/// component, and their automatic frame control if, in addition, both use H.264.
void applyVideoEncoderRules(ConfigClient& client, ChangeSet& changes);

/// Records the broadcast address. One of IP address and subnet mask is written (`name` tells
/// which), the other is stored. Records nothing unless both are IPv4 addresses.
void updateBroadcastAddress(ConfigClient& client, ChangeSet& changes, ParameterPath name,
                            std::string value);

/// Routes both video encoders to video input `input`, a number, and moves the audio selections from
/// the other input's audio encoder to this one's. Other selections stay.
void applySingleInputRule(ConfigClient& client, ChangeSet& changes, std::string input);

/// Carries the audio encoder chosen for any RTSP stream (a bare number, or "off") over to RTMP
/// stream 1 and to the audio component of multiplexer 1.
void applyStreamAudioRule(ConfigClient& client, ChangeSet& changes, std::string value);

/// Switches the frame control of the encoder in `name` (".../vencN/frame_ctrl/rate") off for the
/// written rate "1", and on for any other.
void applyFrameRateRule(ConfigClient& client, ChangeSet& changes, ParameterPath name,
                        std::string value);
