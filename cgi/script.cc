#include "cgi/script.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "cgi/request.h"
#include "config_client/trim.h"

/// The largest number in a setting. As KB, its bytes fit into 32 bits.
static constexpr unsigned largestNumber = 2'000'000;

/// Seconds from the end of the time limit to the end of the program: time for its answer.
static constexpr unsigned grace = 5;

/// Web servers send SIGTERM when a browser cancels its request; a write would stop half way. A
/// server may also have started this process with signals blocked, SIGALRM among them.
static void leaveTheEndToTheLimits() {
  std::ignore = std::signal(SIGTERM, SIG_IGN);
  std::ignore = std::signal(SIGHUP, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

static bool readAll(int fd, std::string& text) {
  char piece[4096];
  while (const ssize_t size = read(fd, piece, sizeof piece)) {
    if (size < 0) return false;
    text.append(piece, static_cast<std::size_t>(size));
  }
  return true;
}

/// The number in `text`, or 0 unless it is one from 1 to the largest.
static unsigned parseNumber(const std::string& text) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number <= largestNumber ? number : 0;
}

extern "C" {
static void endSoon(int /*signal*/) { alarm(grace); }
}

/// After `seconds`, the call in progress fails, and the program answers with the values known by
/// then. If it is still at work after the grace, SIGALRM ends it.
static bool interruptAfter(unsigned seconds) {
  struct sigaction action = {};
  action.sa_handler = endSoon;
  // With SA_RESTART, the interrupted call would go on waiting.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  if (sigaction(SIGALRM, &action, nullptr) != 0) return false;
  alarm(seconds);
  return true;
}

/// Sets the soft and the hard limit. At a lower soft limit, SIGXCPU would leave a core file.
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

/// ": " and the C library's text for `errno`, unless that is 0.
static std::string reason() { return errno != 0 ? std::string(": ") + std::strerror(errno) : ""; }

void Script::open(const char* path) {
  leaveTheEndToTheLimits();
  fd = ::open(path, O_RDONLY | O_CLOEXEC);
  std::string text;
  if (fd == -1 || !readAll(fd, text)) {
    throw std::runtime_error("Cannot read " + std::string(path) + reason());
  }
  int number = 0;
  for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
    ++number;
    end = std::min(text.find('\n', begin), text.size());
    if (!apply(text.substr(begin, end - begin))) {
      throw std::runtime_error("Cannot set line " + std::to_string(number) + reason());
    }
  }
}

/// Puts one line in force. If that fails, `errno` tells why the system refused it, or is 0.
bool Script::apply(std::string line) {
  errno = 0;
  trim(line);
  if (line.empty() || line.front() == '#') return true;
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos) return false;
  std::string name = line.substr(0, equals);
  std::string value = line.substr(equals + 1);
  trim(name);
  trim(value);
  if (name == "writer" && !value.empty()) {
    writers.push_back(value);
    return true;
  }
  const unsigned number = parseNumber(value);
  return number != 0 && limit(name, number);
}

bool Script::limit(const std::string& name, unsigned number) {
  if (name == "body_limit") {
    return setenv("CGICC_MAX_CONTENTLENGTH", std::to_string(number).c_str(), 1) == 0;
  }
  if (name == "time_limit") return interruptAfter(number);
  if (name == "child_limit") {
    childSeconds = number;
    return true;
  }
  if (name == "cpu_limit") return setHard(RLIMIT_CPU, number);
  if (name == "memory_limit") return setHard(RLIMIT_AS, rlim_t{number} * 1024) && hasRoom();
  if (name == "process_limit") return setHard(RLIMIT_NPROC, number);
  return false;
}

bool Script::mayWrite() const {
  const char* const user = std::getenv("REMOTE_USER");
  return writers.empty() ||
         (user != nullptr && std::find(writers.begin(), writers.end(), user) != writers.end());
}

void Script::logWrite() const {
  if (fd != -1) logRequester(LOG_INFO, "Write");
}

bool Script::takeTurn() const { return fd == -1 || flock(fd, LOCK_EX) == 0; }

void Script::leaveTurn() const { close(fd); }

void Script::limitChild() const {
  endAtTimeLimit();
  alarm(childSeconds);
}

void Script::endAtTimeLimit() const {
  if (fd != -1) std::ignore = std::signal(SIGALRM, SIG_DFL);
}
