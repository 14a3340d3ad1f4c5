#include "write_service/dependent_changes.h"

#include "rules/parameter_paths.h"
#include "rules/rules.h"

/// Whether `name` is `prefix`, any one character and `suffix`; more may follow. Throws
/// `std::out_of_range` for a `name` that ends with the prefix; with string views for its arguments,
/// `compare` would end the process instead.
static bool isNumbered(const ParameterPath& name, const std::string& prefix,
                       const std::string& suffix) {
  return name.compare(0, prefix.size(), prefix) == 0 &&
         name.compare(prefix.size() + 1, suffix.size(), suffix) == 0;
}

/// Runs the rule triggered by the written parameter, if any: the first match.
static void applyTriggeredRule(ConfigClient& client, ChangeSet& changes, const ParameterPath& name,
                               const std::string& value) {
  const std::string single = "single";
  if (name == videoInputModePath && value.compare(0, single.size(), single) == 0) {
    // Any one character separates the input's number.
    applySingleInputRule(client, changes, value.substr(single.size() + 1, 1));
  } else if (isNumbered(name, videoEncoderPrefix(), "/frame_ctrl/rate")) {
    applyFrameRateRule(client, changes, name, value);
  } else if (isNumbered(name, streamPrefix("rtsp"), "/aenc")) {
    applyStreamAudioRule(client, changes, value);
  } else if (name == ipAddressPath || name == subnetMaskPath) {
    updateBroadcastAddress(client, changes, name, value);
  }
}

void addDependentChanges(ConfigClient& client, ChangeSet& changes, const ParameterPath& name,
                         const std::string& value) {
  applyTriggeredRule(client, changes, name, value);
  applyFixedSettings(client, changes);
  applyMuxBitrateRule(client, changes);
  applyVideoEncoderRules(client, changes);
}
