#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): glibc's own
extern "C" void* __libc_malloc(std::size_t size);

/// To be preloaded: fails once, at the call whose number FAIL_MALLOC has, and says so.
extern "C" void* malloc(std::size_t size) {
  static const char* const nth = std::getenv("FAIL_MALLOC");
  static int left = nth != nullptr ? std::atoi(nth) : 0;
  if (--left != 0) return __libc_malloc(size);
  const int mark = open("/tmp/fault", O_WRONLY | O_CREAT, 0600);
  static_cast<void>(write(mark, "INJECTED", 8) == 8);
  close(mark);
  errno = ENOMEM;
  return nullptr;
}
