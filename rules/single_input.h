#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Routes both video encoders to the video input of that number, and moves the audio selections
/// that point to the other input's audio encoder; selections that point elsewhere stay.
void applySingleInputRule(ConfigClient& client, ChangeSet& changes, std::string input);
