#include "cgi/reply.h"

#include <cgicc/HTTPContentHeader.h>
#include <cgicc/HTTPResponseHeader.h>

#include <iostream>

static void writeStatus(int code, const char* reason) {
  cgicc::HTTPResponseHeader("HTTP/1.1", code, reason).render(std::cout);
}

void writeBadRequest() { writeStatus(400, "Bad Request"); }

void writeInternalServerError() { writeStatus(500, "Internal Server Error"); }

void writeForbidden(const char* reason) {
  std::cout << "HTTP/1.1 403 Forbidden\nContent-Type: text/plain\n\n" << reason << '\n';
}

void writeJsonHeader() { cgicc::HTTPContentHeader("application/json").render(std::cout); }

/// The letter for `byte` after a backslash, or 0 if `byte` stands for itself.
static char escapeLetter(char byte) {
  switch (byte) {
    case '"':
    case '\\':
    case '/':
      return byte;
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return 0;
  }
}

std::string jsonEscape(const std::string& text) {
  std::string escaped;
  escaped.reserve(2 * text.size());
  for (const char byte : text) {
    const char letter = escapeLetter(byte);
    if (letter != 0) escaped += '\\';
    escaped += letter != 0 ? letter : byte;
  }
  return escaped;
}

void writeJsonMember(const char* before, const std::string& name, const std::string& value) {
  std::cout << before << '"' << jsonEscape(name) << "\": \"" << jsonEscape(value) << '"';
}
