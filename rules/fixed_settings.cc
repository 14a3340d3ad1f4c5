#include "rules/fixed_settings.h"

#include <utility>

#include "rules/parameter_paths.h"
#include "write_service/parameter_access.h"

static ParameterPath logoImagePath(int input) {
  return "/configuration/inputs/video/in" + std::to_string(input) + "/logo/imagefile";
}

void applyFixedSettings(ConfigClient& client, ChangeSet& changes) {
  const char* const logo = "/opt/encsrv/vendor/logos/logo.ppm";
  const std::pair<ParameterPath, const char*> settings[] = {
      {logoImagePath(1), logo},
      {logoImagePath(2), logo},
      {"/configuration/inputs/audio/analog_in1/input", "line"},
      {"/configuration/inputs/audio/analog_in1/micboost", "no"},
      {encoderPath("aenc3", "/codec"), "aac"},
      {"/configuration/inputs/video/in1/deinterlacer/mode", "advanced"},
      {streamPath("rtsp", 1, "/venc"), "1"},
      {streamPath("rtmp", 1, "/venc"), "1"},
      {"/configuration/outputs/recorder/stream", "2"},
      {"/configuration/outputs/recorder/enable", "yes"},
  };
  for (const auto& [path, value] : settings) setIfChanged(client, changes, path, value, "");
}
