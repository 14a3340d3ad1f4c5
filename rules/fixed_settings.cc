#include "rules/rules.h"

#include <utility>

#include "rules/parameter_paths.h"
#include "write_service/parameter_access.h"

void applyFixedSettings(ConfigClient& client, ChangeSet& changes) {
  const char* const logo = "/opt/encsrv/vendor/logos/logo.ppm";
  const std::pair<ParameterPath, const char*> settings[] = {
      {videoInputPath(1, "/logo/imagefile"), logo},
      {videoInputPath(2, "/logo/imagefile"), logo},
      {analogAudioInputPath(1, "/input"), "line"},
      {analogAudioInputPath(1, "/micboost"), "no"},
      {encoderPath("aenc3", "/codec"), "aac"},
      {videoInputPath(1, "/deinterlacer/mode"), "advanced"},
      {streamPath("rtsp", 1, "/venc"), "1"},
      {streamPath("rtmp", 1, "/venc"), "1"},
      {"/configuration/outputs/recorder/stream", "2"},
      {"/configuration/outputs/recorder/enable", "yes"},
  };
  for (const auto& [path, value] : settings) setIfChanged(client, changes, path, value);
}
