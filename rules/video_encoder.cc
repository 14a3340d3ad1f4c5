#include "rules/rules.h"

#include "rules/parameter_paths.h"
#include "write_service/parameter_access.h"

static const char* yesOrNo(bool on) { return on ? "yes" : "no"; }

void applyVideoEncoderRules(ConfigClient& client, ChangeSet& changes) {
  std::string source;
  std::string codec1;
  std::string codec2;
  if (!getEffectiveValue(client, changes, muxComponentEncoderPath(2, 1), source) ||
      !getEffectiveValue(client, changes, videoEncoderPath(1, "/codec"), codec1) ||
      !getEffectiveValue(client, changes, videoEncoderPath(2, "/codec"), codec2)) {
    return;
  }
  const bool copyImage = source == "venc2";
  const bool autoControl = copyImage && codec1 == "h264" && codec2 == "h264";
  for (const int number : {1, 2}) {
    setIfChanged(client, changes, videoEncoderPath(number, "/frame_ctrl/auto"),
                 yesOrNo(autoControl));
    setIfChanged(client, changes, videoEncoderPath(number, "/text_overlay/copy_image"),
                 yesOrNo(copyImage));
  }
}

void applyFrameRateRule(ConfigClient& client, ChangeSet& changes, ParameterPath name,
                        std::string value) {
  // The encoder's number may be any one character.
  name = name.substr(0, videoEncoderPath(1, "/frame_ctrl/").size()) + "enable";
  setIfChanged(client, changes, name, yesOrNo(value != "1"));
}
