#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <tuple>

#include "tests/fake_daemon.h"

/// The beginning of every JSON reply, and of every reply after a failure.
inline const std::string json = "Content-Type: application/json\n\n";
inline const std::string serverError = "HTTP/1.1 500 Internal Server Error\n\n";

/// The exit status of a process that there was not.
inline constexpr int noProcess = -1;

/// The outcome of one request, seen from outside. An exit status is 128 and the signal's number
/// after a signal.
struct Response {
  std::string output;  ///< standard output and standard error
  int exitStatus = 0;
  int childExitStatus = noProcess;  ///< of the detached child
  Strings log;                      ///< lines as "PRIORITY parent TEXT" or "PRIORITY child TEXT"
};

inline auto members(const Response& r) {
  return std::tie(r.output, r.exitStatus, r.childExitStatus, r.log);
}
inline bool operator==(const Response& a, const Response& b) { return members(a) == members(b); }
inline void PrintTo(const Response& response, std::ostream* stream) {  // GoogleTest's name
  *stream << testing::PrintToString(members(response));
}

/// One request, and how to run the program for it.
struct Request {
  Strings environment = {};
  std::string body = {};
  Strings before = {};  ///< a command to run the program under
  Strings program = {TEST_PROGRAM};
  std::function<void(pid_t)> whenStarted = [](pid_t) {};
  std::function<void()> whenAnswered = [] {};  ///< after the output's end, before the child's
};

/// Runs tzr4417.cgi as a web server would, with nothing else in its environment, until all its
/// processes have ended.
Response runProgram(const Request& request);

/// A command to run the program under, so that system calls fail, with `options` of strace: see its
/// --inject.
Strings strace(const std::string& fault, const Strings& options = {});

/// The number of lines with `text` in the trace of the last such run.
std::size_t countInTrace(const std::string& text);

/// A command to run the program under, without a standard input.
inline const Strings withoutInput = {"/bin/sh", "-c", R"(exec "$0" "$@" <&-)"};

inline std::string query(const std::string& fields) { return "QUERY_STRING=" + fields; }

/// A response of the one process, with nothing logged.
inline Response replied(const std::string& output) { return {output, 0, noProcess, {}}; }

inline Response failed(const std::string& text) {
  const std::string output = serverError + "Exception " + text + "\n";
  return {output, 0, noProcess, {"11 parent Caught exception " + text}};
}
