#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Sets both video encoders' overlay copy when "venc2" feeds multiplexer 2's first component, and
/// their automatic frame control when, in addition, both use H.264. Records nothing after a failed
/// read.
void applyVideoEncoderRules(ConfigClient& client, ChangeSet& changes);

/// Switches the frame control of the encoder in `name` ("…/vencN/frame_ctrl/rate") off for the
/// written rate "1", and on for every other.
void applyFrameRateRule(ConfigClient& client, ChangeSet& changes, ParameterPath name,
                        std::string value);
