#pragma once

#include <string>
#include <utility>
#include <vector>

#include "write_service/change_set.h"

// For callers besides this program.

using ChangeSetEntries = std::vector<std::pair<ParameterPath, std::string>>;

/// The entries of `changes` listed in `names`. Other names are skipped.
ChangeSet selectEntries(const ChangeSet& changes, const std::vector<ParameterPath>& names);

/// The entries of `other`, in order, with another value in `base`.
ChangeSetEntries changedEntries(const ChangeSet& base, const ChangeSet& other);

/// The entries of `other`, in order, with a name unknown to `base`.
ChangeSetEntries addedEntries(const ChangeSet& base, const ChangeSet& other);
