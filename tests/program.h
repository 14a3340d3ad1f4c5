#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "tests/fake_daemon.h"

/// The beginning of every JSON reply, and of every reply after a failure.
inline const std::string json = "Content-Type: application/json\n\n";
inline const std::string serverError = "HTTP/1.1 500 Internal Server Error\n\n";

/// The outcome of one request, seen from outside. An exit status is -1 without a process, and 128
/// and the signal's number after a signal.
struct Response {
  std::string output;  ///< standard output and standard error
  int exitStatus = 0;
  int childExitStatus = -1;  ///< of the detached child
  Strings log;               ///< lines as "PRIORITY parent TEXT" or "PRIORITY child TEXT"
};

bool operator==(const Response& a, const Response& b);
void PrintTo(const Response& response, std::ostream* stream);  // GoogleTest's name

/// Runs tzr4417.cgi as a web server would, with nothing else in its environment, until all its
/// processes have ended. `before` is a command to run it under; `whenAnswered` is called between
/// the end of the output and the wait for the child.
Response runProgram(
    const Strings& environment, const std::string& body = "", const Strings& before = {},
    const std::function<void()>& whenAnswered = [] {}, const Strings& program = {TEST_PROGRAM});

/// A command to run the program under, so that system calls fail: see --inject of strace. The trace
/// is in `traceFile` then.
Strings strace(const std::string& fault);
inline constexpr char traceFile[] = "/tmp/trace";

inline std::string query(const std::string& fields) { return "QUERY_STRING=" + fields; }

/// A response of the one process, with nothing logged.
inline Response answered(const std::string& output) { return {output, 0, -1, {}}; }

inline Response failed(const std::string& text) {
  return {serverError + "Exception " + text + "\n", 0, -1, {"11 parent Caught exception " + text}};
}
