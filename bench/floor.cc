// The least cost of a request: the same exchanges with the daemon as tzr4417.cgi, in lock step, the
// same bytes on standard output, with one write, and the same log lines, without the C++ library.
//
// A read takes its names from QUERY_STRING and builds the reply from the answers. A write replays
// the request lines of BENCH_REQUESTS, recorded from the program, and forks at the same point: only
// the program pays for its rules. The floor decodes no query and handles no unknown name.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "config_client/protocol.h"

// Untouched pages cost nothing.
static char output[1 << 20];
static std::size_t outputSize = 0;
static int daemonSocket = -1;

static void print(std::string_view text) {
  std::memcpy(output + outputSize, text.data(), text.size());
  outputSize += text.size();
}

static void printEscaped(std::string_view text) {
  for (const char byte : text) {
    if (byte == '"' || byte == '\\' || byte == '/') output[outputSize++] = '\\';
    output[outputSize++] = byte;
  }
}

/// The daemon's answer, good until the next one.
static std::string_view receive() {
  static char answer[1 << 16];
  for (std::size_t size = 0;;) {
    const ssize_t received = recv(daemonSocket, answer + size, sizeof answer - size, 0);
    if (received <= 0) _exit(1);
    size += static_cast<std::size_t>(received);
    const void* end = memmem(answer, size, prompt.data(), prompt.size());
    if (end != nullptr) {
      return {answer, static_cast<std::size_t>(static_cast<const char*>(end) - answer)};
    }
  }
}

static std::string_view exchange(std::string_view command, std::string_view argument) {
  static char request[1 << 12];
  if (command.size() + argument.size() >= sizeof request) _exit(1);
  std::memcpy(request, command.data(), command.size());
  std::memcpy(request + command.size(), argument.data(), argument.size());
  const std::size_t size = command.size() + argument.size();
  request[size] = requestTerminator;
  if (send(daemonSocket, request, size + 1, MSG_NOSIGNAL) < 0) _exit(1);
  return receive();
}

/// Removes and returns the text up to `separator`, or all of it. The separator goes too.
static std::string_view takeUntil(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view piece(text.data(), end == std::string_view::npos ? text.size() : end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return piece;
}

static void connectToDaemon() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath, sizeof socketPath);
  daemonSocket = socket(AF_UNIX, SOCK_STREAM, 0);
  if (daemonSocket < 0 ||
      connect(daemonSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
    _exit(1);
  }
  receive();
}

static void finish() {
  if (write(STDOUT_FILENO, output, outputSize) < 0) _exit(1);
}

static void read(std::string_view names) {
  print("Content-Type: application/json\n\n");
  std::string_view separator = "{ \"";
  while (!names.empty()) {
    const std::string_view name = takeUntil(names, ',');
    std::string_view value = exchange("ls ", name);
    while (!value.empty() && (value.back() == '\n' || value.back() == '\r')) value.remove_suffix(1);
    print(separator);
    printEscaped(name);
    print("\": \"");
    printEscaped(value);
    print("\"");
    separator = ", \"";
  }
  print(" }\n");
  finish();
}

/// Goes on in a detached child, as the program does before apply and save.
static void detach() {
  if (fork() != 0) _exit(0);
  setsid();
  const int nowhere = open("/dev/null", O_RDWR);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, stream);
}

static void write(std::string_view name, std::string_view value, std::string_view requests) {
  syslog(LOG_INFO, "Setting parameter %.*s to %.*s", static_cast<int>(name.size()), name.data(),
         static_cast<int>(value.size()), value.data());
  print("Content-Type: application/json\n\n{ \"write\": \"");
  printEscaped(name);
  print(R"(", "value": ")");
  printEscaped(value);
  print(R"(", "reply": ")");
  while (!requests.empty()) {
    const std::string_view request = takeUntil(requests, requestTerminator);
    if (request == "apply") {
      print("\" }\n");
      finish();
      detach();
    }
    const std::string_view answer = exchange(request, "");
    if (request[0] == 'p') printEscaped(answer);
  }
  syslog(LOG_INFO, "Applied and saved the parameter settings");
}

int main() {
  const char* const query = std::getenv("QUERY_STRING");
  const char* const requests = std::getenv("BENCH_REQUESTS");
  if (query == nullptr) return 1;
  std::string_view fields(query);
  const std::string_view command = takeUntil(fields, '=');
  openlog("tzr4417.cgi", LOG_PID, LOG_USER);
  connectToDaemon();
  if (command == "read") {
    read(fields);
  } else if (requests != nullptr) {
    const std::string_view name = takeUntil(fields, '&');
    takeUntil(fields, '=');
    write(name, fields, requests);
  }
  return 0;
}
