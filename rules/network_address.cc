#include "rules/rules.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "rules/parameter_paths.h"
#include "write_service/parameter_access.h"

void updateBroadcastAddress(ConfigClient& client, ChangeSet& changes, ParameterPath name,
                            std::string value) {
  std::string ip;
  std::string mask;
  if (name == ipAddressPath) {
    ip = value;
  } else if (name == subnetMaskPath) {
    mask = value;
  }
  if (ip.empty() && !client.get(ipAddressPath, ip)) return;
  if (mask.empty() && !client.get(subnetMaskPath, mask)) return;

  in_addr address{};
  in_addr netmask{};
  if (inet_pton(AF_INET, ip.c_str(), &address) != 1) return;
  if (inet_pton(AF_INET, mask.c_str(), &netmask) != 1) return;
  address.s_addr |= ~netmask.s_addr;
  char text[64];
  inet_ntop(AF_INET, &address, text, sizeof text);
  setIfChanged(client, changes, broadcastAddressPath, text);
}
