#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// One run of tzr4417.cgi as a web server would start it, with nothing else in its environment.
class Program {
 public:
  using Strings = std::vector<std::string>;

  /// Starts it; `before` is a command to run it under.
  explicit Program(Strings environment, const std::string& body = "", const Strings& before = {});

  /// All of standard output and standard error, up to their ends. Both end when every process that
  /// holds them has let go of them.
  std::string output();

  /// Waits for the process that was started; its exit status, or -1 after a signal.
  int exitStatus();

  /// Waits for the detached child; its exit status, or -1 if there is none.
  int detachedExitStatus();

  pid_t parent() const { return started; }
  pid_t detached() const { return left; }

 private:
  int outputEnd;
  pid_t started = -1;
  pid_t left = -1;
};
