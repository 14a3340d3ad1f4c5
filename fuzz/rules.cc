// The rules, with any stored values. The input has a line with the written value, one to choose its
// name, one for the greeting, then one for each read.

#include <arpa/inet.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/fake_socket.h"
#include "rules/parameter_paths.h"
#include "rules/rules.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  serveLines(data, size);
  const std::string value = nextLine();
  const bool isMask = nextLine() == "mask";
  ConfigClient client;
  ChangeSet changes;
  updateBroadcastAddress(client, changes, isMask ? subnetMaskPath : ipAddressPath, value);
  applyMuxBitrateRule(client, changes);
  applyVideoEncoderRules(client, changes);
  applyFixedSettings(client, changes);

  const auto broadcast = changes.find("/configuration/network/broadcast_addr");
  in_addr address{};
  if (broadcast != changes.end() && inet_pton(AF_INET, broadcast->second.c_str(), &address) != 1) {
    std::abort();
  }
  for (const int mux : {1, 2}) {
    const auto bitrate = changes.find(muxPath(mux, "/bitrate"));
    if (bitrate == changes.end()) continue;
    const int total = std::stoi(bitrate->second);
    if (total < 200000 || total > 50000000 || std::to_string(total) != bitrate->second) {
      std::abort();
    }
  }
  return 0;
}
