// A read, with any replies of the daemon, from the greeting on.

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "fuzz/fake_socket.h"
#include "read_service/read_request.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  serveBytes(data, size);
  std::ostringstream output;
  std::streambuf* const before = std::cout.rdbuf(output.rdbuf());
  handleReadRequest("/a,/b c,/d");
  std::cout.rdbuf(before);

  const std::string reply = output.str();
  if (reply == "HTTP/1.1 500 Internal Server Error\n\n") return 0;
  const std::string start = "Content-Type: application/json\n\n{ \"";
  const std::string tail = "\" ] }\n";  // "/b c" is always invalid
  if (reply.compare(0, start.size(), start) != 0 || reply.size() < start.size() + tail.size() ||
      reply.compare(reply.size() - tail.size(), tail.size(), tail) != 0) {
    std::abort();
  }
  return 0;
}
