#pragma once

#include <string>
#include <utility>
#include <vector>

#include "write_service/change_set.h"

// For callers besides this program.

using ChangeSetEntries = std::vector<std::pair<ParameterPath, std::string>>;

/// The entries of `changes` that `names` lists; a name that `changes` lacks is passed over.
ChangeSet selectEntries(const ChangeSet& changes, const std::vector<ParameterPath>& names);

/// The entries of `other`, in order, whose name `base` holds with a different value.
ChangeSetEntries changedEntries(const ChangeSet& base, const ChangeSet& other);

/// The entries of `other`, in order, whose name `base` does not hold.
ChangeSetEntries addedEntries(const ChangeSet& base, const ChangeSet& other);
