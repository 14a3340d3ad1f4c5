#include "read_service/read_request.h"

#include <syslog.h>

#include <iostream>
#include <sstream>
#include <vector>

#include "cgi/reply.h"
#include "config_client/config_client.h"
#include "config_client/protocol.h"

/// Reads `name` into `value`. A name with a blank is never sent: it would make two words.
static bool readValue(ConfigClient& client, const std::string& name, std::string& value) {
  return name.find(' ') == std::string::npos && client.get(name, value) && value != noSuchParameter;
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

  const char* const objectStart = "{ ";
  const char* separator = objectStart;
  std::vector<std::string> invalid;
  std::istringstream list(names);
  for (std::string name; std::getline(list, name, ',');) {
    if (name.empty()) continue;
    std::string value;
    if (!readValue(client, name, value)) {
      invalid.push_back(name);
      continue;
    }
    std::cout << separator << '"' << jsonEscape(name) << "\": \"" << jsonEscape(value) << '"';
    separator = ", ";
  }

  if (!invalid.empty()) {
    std::cout << separator << "\"invalid\": ";
    separator = "[ ";
    for (const std::string& name : invalid) {
      // As it stood in the request, not escaped: the pages look it up in what they sent.
      std::cout << separator << '"' << name << '"';
      separator = ", ";
    }
    std::cout << " ]";
  }
  if (separator != objectStart) std::cout << " }" << std::endl;
}
