#include "config_client/change_set_entries.h"

ChangeSet selectEntries(const ChangeSet& changes, const std::vector<ParameterPath>& names) {
  ChangeSet selected;
  for (const ParameterPath& name : names) {
    const auto found = changes.find(name);
    if (found != changes.end()) selected.insert(*found);
  }
  return selected;
}

ChangeSetEntries changedEntries(const ChangeSet& base, const ChangeSet& other) {
  ChangeSetEntries changed;
  for (const auto& entry : other) {
    const auto found = base.find(entry.first);
    if (found != base.end() && found->second != entry.second) changed.emplace_back(entry);
  }
  return changed;
}

ChangeSetEntries addedEntries(const ChangeSet& base, const ChangeSet& other) {
  ChangeSetEntries added;
  for (const auto& entry : other) {
    if (base.count(entry.first) == 0) added.emplace_back(entry);
  }
  return added;
}
