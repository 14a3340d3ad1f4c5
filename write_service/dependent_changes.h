#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Adds to `changes` the parameters that must change with the write of `value` to `name`: first the
/// rule that `name` triggers, if any, then the rules for every write. `changes` holds the write
/// itself already, and `value` is one word.
///
/// Throws `std::out_of_range` if `name` or `value` ends where the rule that its beginning selects
/// expects a number.
void addDependentChanges(ConfigClient& client, ChangeSet& changes, const ParameterPath& name,
                         const std::string& value);
