// Any request, from the environment and standard input, through cgicc. The input has a line with
// the query string, one with the content type, and the body.

#include "cgi/request.h"

#include <cgicc/Cgicc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "cgi/reply.h"

/// Makes `body` the content of standard input.
static void setInput(const std::string& body) {
  const int file = memfd_create("body", 0);
  if (write(file, body.data(), body.size()) != static_cast<ssize_t>(body.size())) std::abort();
  lseek(file, 0, SEEK_SET);
  dup2(file, STDIN_FILENO);
  close(file);
  std::clearerr(stdin);
  std::cin.clear();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find('\0') != std::string::npos) return 0;  // no environment holds it
  std::istringstream input(text);
  std::string query;
  std::string type;
  std::getline(std::getline(input, query), type);
  const std::string body(std::istreambuf_iterator<char>(input), {});
  // Not by setenv, since it never frees an old value.
  std::string variables[] = {"REQUEST_METHOD=POST", "QUERY_STRING=" + query, "CONTENT_TYPE=" + type,
                             "CONTENT_LENGTH=" + std::to_string(body.size())};
  char* pointers[] = {variables[0].data(), variables[1].data(), variables[2].data(),
                      variables[3].data(), nullptr};
  environ = pointers;
  setInput(body);
  try {
    const RequestFields fields = readFields(cgicc::Cgicc());
    // Without the header, nothing but reads gets through.
    if (!mayBeForged() && !fields.read) std::abort();
    if (fields.read && fields.read->find_first_of("\r\n") != std::string::npos) std::abort();
    for (const auto& field : {fields.read, fields.write, fields.value}) {
      if (field && jsonEscape(*field).size() > 2 * field->size()) std::abort();
    }
  } catch (const std::exception&) {
    // The program answers 500.
  }
  environ = nullptr;
  return 0;
}
