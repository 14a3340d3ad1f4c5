#include "fuzz/fake_socket.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "config_client/protocol.h"

static const char* next = nullptr;
static const char* end = nullptr;
static bool byLines = false;

void serveBytes(const std::uint8_t* data, std::size_t size) {
  next = reinterpret_cast<const char*>(data);
  end = next + size;
  byLines = false;
}

void serveLines(const std::uint8_t* data, std::size_t size) {
  serveBytes(data, size);
  byLines = true;
}

std::string nextLine() {
  const char* const stop = std::find(next, end, '\n');
  std::string line(next, stop);
  next = stop == end ? end : stop + 1;
  return line;
}

// The names expected by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

int __wrap_connect(int /*fd*/, const sockaddr* /*address*/, socklen_t /*length*/) { return 0; }

ssize_t __wrap_send(int /*fd*/, const void* /*data*/, std::size_t size, int /*flags*/) {
  return static_cast<ssize_t>(size);
}

ssize_t __wrap_recv(int /*fd*/, void* buffer, std::size_t size, int /*flags*/) {
  if (next == end) {
    errno = ECONNRESET;
    return -1;
  }
  std::string piece;
  if (byLines) {
    piece = nextLine().append(prompt);
  } else {
    // A length, then as many bytes.
    const std::size_t length = static_cast<unsigned char>(*next++);
    piece.assign(next, std::min(length, static_cast<std::size_t>(end - next)));
    next += piece.size();
  }
  piece.resize(std::min(piece.size(), size));
  std::memcpy(buffer, piece.data(), piece.size());
  return static_cast<ssize_t>(piece.size());
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
