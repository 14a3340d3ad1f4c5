#include "rules/rules.h"

#include "rules/parameter_paths.h"
#include "write_service/parameter_access.h"

void applyStreamAudioRule(ConfigClient& client, ChangeSet& changes, std::string value) {
  setIfChanged(client, changes, streamPath("rtmp", 1, "/aenc"), value);
  if (value != "off") value.insert(0, "aenc");
  setIfChanged(client, changes, muxComponentEncoderPath(1, 2), value);
}
