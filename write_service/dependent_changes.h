#pragma once

#include <string>

#include "config_client/config_client.h"
#include "write_service/change_set.h"

/// Adds the dependent parameters of a write to `changes`. First comes the rule triggered by `name`,
/// if any, then the rules for every write. `changes` holds the write itself already; `value` is one
/// word.
///
/// Throws `std::out_of_range` if `name` or `value` ends where a rule expects a number.
void addDependentChanges(ConfigClient& client, ChangeSet& changes, const ParameterPath& name,
                         const std::string& value);
