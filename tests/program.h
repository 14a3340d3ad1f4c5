#pragma once

#include <functional>
#include <string>
#include <tuple>

#include "tests/fake_daemon.h"

// Variables of a request's environment.
inline const std::string post = "REQUEST_METHOD=POST";
inline const std::string form = "CONTENT_TYPE=application/x-www-form-urlencoded";
inline const std::string length = "CONTENT_LENGTH=";
inline std::string query(const std::string& fields) { return "QUERY_STRING=" + fields; }

/// The beginning of every JSON reply, and of every reply after a failure.
inline const std::string json = "Content-Type: application/json\n\n";
inline const std::string serverError = "HTTP/1.1 500 Internal Server Error\n\n";

/// The outcome of one request, seen from outside: standard output and standard error; the exit
/// status, and that of the detached child, or the number of the signal that ended it; and the log,
/// in lines as "PRIORITY parent TEXT" or "PRIORITY child TEXT".
using Response = std::tuple<std::string, int, int, Strings>;

/// The exit status of a process that there was not.
inline constexpr int noProcess = -1;

/// Whether the tests are for another machine. strace does not work there.
inline const bool isEmulated = *TEST_EMULATOR != '\0';

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

/// The fault of a system that starts no more processes.
inline const std::string forkFails = "clone,fork,clone3:error=EAGAIN";

/// A command to run the program under, without a standard input.
inline const Strings withoutInput = {"/bin/sh", "-c", R"(exec "$0" "$@" <&-)"};

/// A response of the one process, with nothing logged.
inline Response replied(const std::string& output) { return {output, 0, noProcess, {}}; }

/// The usual one to a read of "/a" from {{"/a", "1"}}.
inline const Response usual = replied(json + "{ \"\\/a\": \"1\" }\n");

inline Response failed(const std::string& text) {
  const std::string output = serverError + "Exception " + text + "\n";
  return {output, 0, noProcess, {"11 parent Caught exception " + text}};
}
