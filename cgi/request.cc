#include "cgi/request.h"

#include <strings.h>
#include <syslog.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

/// The first field with this name, or null.
static const cgicc::FormEntry* find(const cgicc::Cgicc& request, const char* name) {
  const auto field = request.getElement(name);
  return field != request.getElements().end() ? &*field : nullptr;
}

RequestFields readFields(const cgicc::Cgicc& request) {
  const cgicc::FormEntry* read = find(request, "read");
  const cgicc::FormEntry* write = find(request, "write");
  const cgicc::FormEntry* value = find(request, "value");
  RequestFields fields;
  if (read != nullptr) fields.read = read->getStrippedValue();
  if (write != nullptr) fields.write = write->getValue();
  if (value != nullptr) fields.value = value->getValue();
  return fields;
}

bool bodyExceedsLimit() {
  const char* limit = std::getenv("CGICC_MAX_CONTENTLENGTH");
  const char* method = std::getenv("REQUEST_METHOD");
  const char* length = std::getenv("CONTENT_LENGTH");
  if (limit == nullptr || method == nullptr || length == nullptr) return false;
  if (strcasecmp(method, "post") != 0 && strcasecmp(method, "put") != 0) return false;
  // Both are converted as in cgicc: a negative number becomes a very large one.
  return static_cast<unsigned long>(std::atol(length)) >
         static_cast<unsigned long>(std::atoi(limit));
}

bool mayBeForged() {
  constexpr char read[] = "read=";
  const char* query = std::getenv("QUERY_STRING");
  if (query != nullptr && std::strncmp(query, read, sizeof read - 1) == 0) return false;
  const char* header = std::getenv("HTTP_X_REQUESTED_WITH");
  return header == nullptr || *header == '\0';
}

/// The value of an environment variable for a line of the log.
static std::string printable(const char* variable, const char* missing) {
  const char* const value = std::getenv(variable);
  if (value == nullptr || *value == '\0') return missing;
  std::string text(value, strnlen(value, 64));
  const auto isControl = [](unsigned char byte) { return std::iscntrl(byte) != 0; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

void logRequester(int priority, const char* action) {
  syslog(priority, "%s by %s from %s", action, printable("REMOTE_USER", "nobody").c_str(),
         printable("REMOTE_ADDR", "nowhere").c_str());
}
