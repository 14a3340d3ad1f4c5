#include "cgi/limits.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

#include "config_client/trim.h"

namespace {

struct ResourceLimit {
  const char* name;
  decltype(RLIMIT_CPU) resource;
  rlim_t unit;
};

constexpr ResourceLimit resourceLimits[] = {
    {"cpu_limit", RLIMIT_CPU, 1},        // seconds
    {"memory_limit", RLIMIT_AS, 1024},   // KB of address space
    {"process_limit", RLIMIT_NPROC, 1},  // processes of the user, beyond which none is started
};

/// The largest number in a setting: as KB, it fits into 32 bits of bytes.
constexpr unsigned largest = 2'000'000;

}  // namespace

/// Leaves it to the limits alone to end a request. Web servers send SIGTERM when a browser cancels
/// one, and a write would stop half way.
static void setSignals() {
  static_cast<void>(std::signal(SIGTERM, SIG_IGN));
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));
  static_cast<void>(std::signal(SIGALRM, SIG_DFL));
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// The number that `text` is, or 0 when it is none from 1 to the largest.
static unsigned parseNumber(const std::string& text) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number <= largest ? number : 0;
}

/// Sets the limit `name`. Returns false when there is none or `value` is no number for it.
static bool setLimit(const std::string& name, const std::string& value) {
  const unsigned number = parseNumber(value);
  if (number == 0) return false;
  if (name == "body_limit") {  // bytes
    return setenv("CGICC_MAX_CONTENTLENGTH", value.c_str(), 1) == 0;
  }
  if (name == "time_limit") {  // seconds until the reply, not for the child
    alarm(number);
    return true;
  }
  for (const ResourceLimit& entry : resourceLimits) {
    if (name != entry.name) continue;
    // No soft limit below the hard one: its signal would leave a core file.
    const rlimit limit{number * entry.unit, number * entry.unit};
    if (setrlimit(entry.resource, &limit) != 0) {
      throw std::runtime_error("Cannot set " + name + ": " + std::strerror(errno));
    }
    return true;
  }
  return false;
}

static std::string trimmed(std::string text) {
  trim(text);
  return text;
}

void applyLimits(const char* script) {
  setSignals();
  std::ifstream lines(script);
  for (std::string line; std::getline(lines, line);) {
    trim(line);
    if (line.empty() || line.front() == '#') continue;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos ||
        !setLimit(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)))) {
      throw std::runtime_error("Cannot set " + line);
    }
  }
  if (!lines.eof()) {
    throw std::runtime_error("Cannot read " + std::string(script) + ": " + std::strerror(errno));
  }
}
