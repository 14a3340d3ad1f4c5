// The interpreter of the file that the web server starts as the program:
//
//   #!/usr/lib/tzr4417/limited
//   program = /usr/lib/cgi-bin/tzr4417.cgi
//   time_limit = 30
//
// It sets the limits that stand there and becomes the program. So they hold for the program and not
// for the web server, and need no second process. It does without the streams and the strings of
// the C++ library, which would take longer to start than all the rest.

#include <fcntl.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace {

struct ResourceLimit {
  const char* name;
  decltype(RLIMIT_CPU) resource;
  rlim_t unit;
};

/// What the kernel limits, for the program and again for the child that it leaves.
constexpr ResourceLimit resourceLimits[] = {
    {"cpu_limit", RLIMIT_CPU, 1},        // seconds
    {"memory_limit", RLIMIT_AS, 1024},   // KB of address space
    {"process_limit", RLIMIT_NPROC, 1},  // processes of the user, beyond which none is started
};

/// The largest number in a setting: as KB, it fits into 32 bits of bytes.
constexpr rlim_t largest = 2'000'000;

}  // namespace

static void reply(const char* text) {
  // Without a web server that takes it, there is nobody to tell.
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, text, std::strlen(text));
}

/// Answers 500, and logs why.
[[noreturn]] static void refuse(const char* what, const char* why) {
  openlog("tzr4417-limited", LOG_PID, LOG_USER);
  syslog(LOG_ERR, "%s: %s", what, why);
  reply("HTTP/1.1 500 Internal Server Error\n\n");
  std::exit(0);
}

/// Opens the standard streams that are closed: the daemon's connection would take their place.
static void openStreams() {
  int fd = -1;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= STDIN_FILENO && fd < STDERR_FILENO);
  if (fd > STDERR_FILENO) close(fd);
}

/// Leaves it to the limits alone to end a request. Web servers send SIGTERM when a browser cancels
/// one, and a write would stop half way.
static void setSignals() {
  static_cast<void>(std::signal(SIGTERM, SIG_IGN));
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGALRM, SIG_DFL));
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// A page of another site can make a browser send a request with the user's password, but not with
/// this header. A query that begins with "read=" makes of any request a read, and its answer the
/// browser hides from such a page.
static bool mayBeForged() {
  constexpr char read[] = "read=";
  const char* query = std::getenv("QUERY_STRING");
  if (query != nullptr && std::strncmp(query, read, sizeof read - 1) == 0) return false;
  const char* header = std::getenv("HTTP_X_REQUESTED_WITH");
  return header == nullptr || *header == '\0';
}

/// Reads `file` into `text`, with a zero at its end.
template <std::size_t Size>
static void readFile(const char* file, char (&text)[Size]) {
  const int fd = open(file, O_RDONLY | O_CLOEXEC);
  const ssize_t size = fd < 0 ? -1 : read(fd, text, Size);
  if (size < 0) refuse(file, std::strerror(errno));
  if (size == Size) refuse(file, "too long");
  text[size] = '\0';
  close(fd);
}

/// `text` without the blanks around it; it is cut in place.
static char* trim(char* text) {
  constexpr char blanks[] = " \t";
  text += std::strspn(text, blanks);
  char* end = text + std::strlen(text);
  while (end > text && std::strchr(blanks, end[-1]) != nullptr) --end;
  *end = '\0';
  return text;
}

/// The number that `text` is, or 0 when it is none from 1 to the largest.
static rlim_t parseNumber(const char* text) {
  rlim_t number = 0;
  for (; *text >= '0' && *text <= '9' && number <= largest; ++text) {
    number = 10 * number + static_cast<rlim_t>(*text - '0');
  }
  return *text == '\0' && number <= largest ? number : 0;
}

/// Sets the limit `name`. Returns false when there is none or `value` is no number for it.
static bool setLimit(const char* name, const char* value) {
  const rlim_t number = parseNumber(value);
  if (number == 0) return false;
  if (std::strcmp(name, "body_limit") == 0) {  // bytes; the program itself keeps to it
    return setenv("CGICC_MAX_CONTENTLENGTH", value, 1) == 0;
  }
  if (std::strcmp(name, "time_limit") == 0) {  // seconds until the reply, not for the child
    alarm(static_cast<unsigned>(number));
    return true;
  }
  for (const ResourceLimit& entry : resourceLimits) {
    if (std::strcmp(name, entry.name) != 0) continue;
    // No soft limit below the hard one: its signal would leave a core file.
    const rlimit limit{number * entry.unit, number * entry.unit};
    if (setrlimit(entry.resource, &limit) != 0) refuse(name, std::strerror(errno));
    return true;
  }
  return false;
}

/// Does what the lines of `text` say, cutting it up, and returns the program or null.
static char* applySettings(char* text) {
  char* program = nullptr;
  for (char* next = nullptr; text != nullptr; text = next) {
    next = std::strchr(text, '\n');
    if (next != nullptr) *next++ = '\0';
    char* name = trim(text);
    if (*name == '\0' || *name == '#') continue;
    char* value = std::strchr(name, '=');
    if (value == nullptr) refuse(name, "no setting");
    *value++ = '\0';
    name = trim(name);
    value = trim(value);
    if (std::strcmp(name, "program") == 0) {
      program = value;
    } else if (!setLimit(name, value)) {
      refuse(name, "no such setting, or no number from 1 to 2000000");
    }
  }
  return program;
}

int main(int argc, char** argv) {
  openStreams();
  setSignals();
  if (argc < 2) refuse(argv[0], "no file with settings");
  char text[4096];
  readFile(argv[1], text);
  char* program = applySettings(text);
  if (program == nullptr) refuse(argv[1], "no program");
  if (mayBeForged()) {
    reply("HTTP/1.1 403 Forbidden\nContent-Type: text/plain\n\nNo X-Requested-With header\n");
    return 0;
  }
  char* arguments[] = {program, nullptr};
  execv(program, arguments);
  refuse(program, std::strerror(errno));
}
