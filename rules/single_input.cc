#include "rules/rules.h"

#include "rules/parameter_paths.h"
#include "write_service/parameter_access.h"

void applySingleInputRule(ConfigClient& client, ChangeSet& changes, std::string input) {
  const std::string other = input == "1" ? "2" : "1";
  for (const int number : {1, 2}) {
    setIfChanged(client, changes, videoEncoderPath(number, "/input"), "in" + input);
  }
  setIfChanged(client, changes, streamPath("rtsp", 1, "/aenc"), input, other);
  setIfChanged(client, changes, streamPath("rtmp", 1, "/aenc"), input, other);
  for (const int mux : {1, 2}) {
    setIfChanged(client, changes, muxComponentEncoderPath(mux, 2), "aenc" + input, "aenc" + other);
  }
}
