#include "cgi/limits.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "config_client/trim.h"

/// The largest number in a setting: as KB, it fits into 32 bits of bytes.
static constexpr unsigned largest = 2'000'000;

/// Seconds of an interrupted program for its answer.
static constexpr unsigned grace = 5;

/// Leaves it to the limits alone to end a request. Web servers send SIGTERM when a browser cancels
/// one, and a write would stop half way.
static void setSignals() {
  static_cast<void>(std::signal(SIGTERM, SIG_IGN));
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// The number in `text`, or 0 unless it is one from 1 to the largest.
static unsigned parseNumber(const std::string& text) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number <= largest ? number : 0;
}

extern "C" {
static void endSoon(int /*signal*/) { alarm(grace); }
}

/// After `seconds`, fails the call in progress, so that the answer goes out with the values known
/// by then. The grace then ends a program still at work.
static bool interruptAfter(unsigned seconds) {
  struct sigaction action = {};
  action.sa_handler = endSoon;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // and not SA_RESTART
  if (sigaction(SIGALRM, &action, nullptr) != 0) return false;
  alarm(seconds);
  return true;
}

/// No soft limit below the hard one: its signal would leave a core file.
static bool setHard(decltype(RLIMIT_CPU) resource, rlim_t value) {
  const rlimit limit{value, value};
  return setrlimit(resource, &limit) == 0;
}

/// Whether there is address space left for the work of a request.
static bool hasRoom() {
  constexpr std::size_t size = 1U << 20U;
  void* const room = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return room != MAP_FAILED && munmap(room, size) == 0;
}

/// False when there is no such setting, with `errno` untouched, or when the system refuses it.
bool Limits::set(const std::string& name, unsigned number) {
  if (name == "body_limit") {
    return setenv("CGICC_MAX_CONTENTLENGTH", std::to_string(number).c_str(), 1) == 0;
  }
  if (name == "time_limit") return interruptAfter(number);
  if (name == "child_limit") return (childSeconds = number) != 0;
  if (name == "cpu_limit") return setHard(RLIMIT_CPU, number);
  if (name == "memory_limit") return setHard(RLIMIT_AS, rlim_t{number} * 1024) && hasRoom();
  if (name == "process_limit") return setHard(RLIMIT_NPROC, number);
  return false;
}

static std::string trimmed(std::string text) {
  trim(text);
  return text;
}

static std::string reason() { return errno != 0 ? std::string(": ") + std::strerror(errno) : ""; }

void Limits::apply(const char* script) {
  path = script;
  setSignals();
  std::ifstream lines(script);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    trim(line);
    if (line.empty() || line.front() == '#') continue;
    const std::size_t equals = std::min(line.find('='), line.size() - 1);
    const unsigned value = parseNumber(trimmed(line.substr(equals + 1)));
    errno = 0;
    if (value == 0 || !set(trimmed(line.substr(0, equals)), value)) {
      throw std::runtime_error("Cannot set line " + std::to_string(number) + reason());
    }
  }
  if (!lines.eof()) throw std::runtime_error("Cannot read " + std::string(script) + reason());
}

bool Limits::takeTurn() {
  if (path == nullptr) return true;
  turn = open(path, O_RDONLY | O_CLOEXEC);
  return turn != -1 && flock(turn, LOCK_EX) == 0;
}

void Limits::beginApply(bool isChild) const {
  if (path == nullptr) return;
  static_cast<void>(std::signal(SIGALRM, SIG_DFL));
  if (!isChild) return;
  close(turn);
  alarm(childSeconds);
}
