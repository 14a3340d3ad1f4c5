#include "read_service/read_request.h"

#include <syslog.h>

#include <algorithm>
#include <iostream>
#include <utility>
#include <vector>

#include "cgi/reply.h"
#include "config_client/config_client.h"
#include "config_client/protocol.h"

/// The names of a comma-separated list, without the empty ones.
static std::vector<std::string> splitNames(const std::string& list) {
  std::vector<std::string> names;
  for (std::size_t begin = 0, end = 0; begin < list.size(); begin = end + 1) {
    end = std::min(list.find(',', begin), list.size());
    if (end > begin) names.push_back(list.substr(begin, end - begin));
  }
  return names;
}

/// Reads `name` into `value`. A name with a blank is never sent: it would make two words.
static bool readValue(ConfigClient& client, const std::string& name, std::string& value) {
  return name.find(' ') == std::string::npos && client.get(name, value) && value != noSuchParameter;
}

/// Writes `names` as a JSON array, unescaped: each as it was in the request.
static void writeArray(const std::vector<std::string>& names) {
  const char* separator = "[ ";
  for (const std::string& name : names) {
    std::cout << separator << '"' << name << '"';
    separator = ", ";
  }
  std::cout << " ]";
}

void handleReadRequest(std::string names) {
  ConfigClient client;
  if (!client.isConnected()) {
    writeInternalServerError();
    return;
  }
  if (names.empty()) {
    syslog(LOG_ERR, "No parameter names in read request");
    writeBadRequest();
    return;
  }
  writeJsonHeader();

  bool anyMember = false;
  const auto separator = [&anyMember] { return std::exchange(anyMember, true) ? ", " : "{ "; };
  std::vector<std::string> invalid;
  for (const std::string& name : splitNames(names)) {
    std::string value;
    if (readValue(client, name, value)) {
      writeJsonMember(separator(), name, value);
    } else {
      invalid.push_back(name);
    }
  }
  if (!invalid.empty()) {
    std::cout << separator() << "\"invalid\": ";
    writeArray(invalid);
  }
  if (anyMember) std::cout << " }" << std::endl;
}
