#include "cgi/request.h"

#include <strings.h>

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
