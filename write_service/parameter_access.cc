#include "write_service/parameter_access.h"

#include <syslog.h>

void logSetting(const ParameterPath& path, const std::string& value) {
  syslog(LOG_INFO, "Setting parameter %s to %s", path.c_str(), value.c_str());
}

bool getEffectiveValue(ConfigClient& client, const ChangeSet& changes, const ParameterPath& path,
                       std::string& value) {
  const auto pending = changes.find(path);
  if (pending == changes.end()) return client.get(path, value);
  value = pending->second;
  return true;
}

bool setIfChanged(ConfigClient& client, ChangeSet& changes, const ParameterPath& path,
                  const std::string& newValue, const std::string& expected) {
  std::string current;
  if (!client.get(path, current)) return false;
  if (expected.empty() ? current != newValue : current == expected) {
    changes[path] = newValue;
    logSetting(path, newValue);
  }
  return true;
}
