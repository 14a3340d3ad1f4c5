#pragma once

#include <sys/types.h>

#include <string>
#include <tuple>
#include <vector>

using Strings = std::vector<std::string>;

/// One run of tzr4417.cgi as a web server would start it, with nothing else in its environment, and
/// the system log, on /dev/log, as long as it lives.
class Program {
 public:
  /// Starts it; `before` is a command to run it under.
  explicit Program(Strings environment, const std::string& body = "", const Strings& before = {});
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// All of standard output and standard error, up to their ends. Both end when every process that
  /// holds them has let go of them.
  std::string output();

  /// Waits for the process that was started; its exit status, or -1 after a signal.
  [[nodiscard]] int exitStatus() const;

  /// Waits for the detached child; its exit status, or -1 if there is none.
  int detachedExitStatus();

  /// What was logged, when all have ended: "PRIORITY parent TEXT" or "PRIORITY child TEXT".
  Strings log();

 private:
  void readLog();

  int logSocket;
  int outputEnd = -1;
  pid_t parent = -1;
  pid_t child = -1;
  Strings messages;
};

/// The whole of one request, seen from outside: the output, both exit statuses and the log.
using Response = std::tuple<std::string, int, int, Strings>;

/// Runs one request until all its processes have ended.
Response respond(const Strings& environment, const std::string& body = "",
                 const Strings& before = {});
