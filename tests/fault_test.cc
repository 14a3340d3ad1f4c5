#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/appliance.h"
#include "tests/program.h"

static const std::string json = "Content-Type: application/json\n\n";
static const std::string serverError = "HTTP/1.1 500 Internal Server Error\n\n";

struct Request {
  std::string query;
  Lines whole;  // every whole answer: all values, or without those that could not be had
};

static const Request requests[] = {
    {"read=/a,/b",
     {json + R"({ "\/a": "1", "\/b": "2" })" + "\n",
      json + R"({ "\/a": "1", "invalid": [ "/b" ] })" + "\n",
      json + R"({ "invalid": [ "/a", "/b" ] })" + "\n"}},
    {"write=/x&value=1", {json + R"({ "write": "\/x", "value": "1", "reply": "ok\r\n" })" + "\n"}},
};

/// What a fault may leave of the answer.
enum class Outcome { StatusOrWhole, Whole, Cut, StatusBehindCut };

static bool startsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

static bool isAllowed(Outcome outcome, const Request& request, const std::string& output) {
  const std::size_t status = output.find(serverError);
  if (outcome == Outcome::StatusOrWhole && status == 0) return true;
  const bool isCut = outcome == Outcome::Cut ||
                     (outcome == Outcome::StatusBehindCut && status != std::string::npos &&
                      output.substr(status) == serverError + "Exception std::bad_alloc\n");
  return std::any_of(request.whole.begin(), request.whole.end(), [&](const std::string& whole) {
    return output == whole || (isCut && startsWith(whole, output.substr(0, status)));
  });
}

/// Where a fault leaves its mark once it has struck.
static const char* const mark = "/tmp/fault";

static bool hasStruck() {
  std::ifstream file(mark);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  return text.find("INJECTED") != std::string::npos;
}

/// Has the first, second, ... occurrence of a fault strike, until there is none any more; `under`
/// makes the command to run the program under. Returns how many there were.
static int strikeEach(const Request& request, Outcome outcome, const std::string& what,
                      const std::function<Strings(const std::string& nth)>& under) {
  Tree tree = applianceTree();
  tree.insert({{"/a", "1"}, {"/b", "2"}});
  for (int nth = 1;; ++nth) {
    std::filesystem::remove(mark);
    FakeDaemon daemon(answersFrom(tree, {{"put", "ok"}}));
    const auto [output, exitStatus, detachedExitStatus, log] =
        respond({"QUERY_STRING=" + request.query}, "", under(std::to_string(nth)));
    EXPECT_EQ(exitStatus, 0) << what << nth;
    EXPECT_TRUE(isAllowed(outcome, request, output)) << what << nth << output;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << what << nth;
    EXPECT_EQ(errno, ECHILD) << what << nth;
    if (!hasStruck()) return nth - 1;
  }
}

TEST(Faults, OfSystemCallsLeaveASpecifiedAnswerAndNoProcess) {
  const struct {
    const char *calls, *errors;
    Outcome outcome;
    int readFaults, writeFaults;  // how often the request makes the call, at the least
  } rows[] = {
      {"socket", "EMFILE ENFILE ENOMEM", Outcome::StatusOrWhole, 1, 2},
      {"connect", "EINTR EAGAIN ECONNREFUSED", Outcome::StatusOrWhole, 1, 2},
      {"sendto", "EINTR EPIPE ENOMEM", Outcome::StatusOrWhole, 2, 35},
      {"recvfrom", "EINTR ECONNRESET ENOMEM", Outcome::StatusOrWhole, 3, 36},
#ifndef __SANITIZE_ADDRESS__  // its runtime has writes, and an allocator, of its own
      {"write", "EINTR EPIPE EAGAIN", Outcome::Cut, 3, 3},
#endif
      {"clone,fork,clone3", "EAGAIN ENOMEM", Outcome::Whole, 0, 1},
      {"setsid", "EPERM", Outcome::Whole, 0, 1},
      {"openat,open", "EMFILE ENFILE EINTR", Outcome::Whole, 0, 3},
  };
  for (const auto& [calls, errors, outcome, readFaults, writeFaults] : rows) {
    std::istringstream list(errors);
    for (std::string error; list >> error;) {
      const auto strace = [calls = std::string(calls), error](const std::string& nth) {
        Strings command{"strace",
                        "-f",
                        "-qq",
                        "-o",
                        mark,
                        "-E",
                        "ASAN_OPTIONS=detect_leaks=0",
                        "-e",
                        "trace=" + calls,
                        "-e",
                        "inject=" + calls + ":error=" + error + ":when=" + nth};
        if (startsWith(calls, "open")) command.insert(command.end(), {"-P", "/dev/null"});
        return command;
      };
      const std::string what = std::string(calls) + ' ' + error + ' ';
      EXPECT_GE(strikeEach(requests[0], outcome, what, strace), readFaults) << what;
      EXPECT_GE(strikeEach(requests[1], outcome, what, strace), writeFaults) << what;
    }
  }
}

TEST(Faults, OfForkLeaveTheRestToTheSameProcess) {
  FakeDaemon daemon(answersFrom(applianceTree(), {{"put", "ok"}}));
  const Lines log{"14 ? Setting parameter /x to 1",  // not ours: strace has started it
                  "14 ? Reply from \"put\": ok\r\n",
                  "12 ? Failed to fork child process, continuing in parent process",
                  "14 ? Applied and saved the parameter settings"};
  EXPECT_EQ(respond({"QUERY_STRING=" + requests[1].query}, "",
                    {"strace", "-o", mark, "-E", "ASAN_OPTIONS=detect_leaks=0", "-e",
                     "inject=clone,fork,clone3:error=EAGAIN"}),
            Response(requests[1].whole[0], 0, -1, log));
  EXPECT_EQ(daemon.requests().back(), "save");
}

#ifndef __SANITIZE_ADDRESS__
TEST(Faults, OfMemoryLeaveA500OrTheAnswer) {
  for (const Request& request : requests) {
    const int faults =
        strikeEach(request, Outcome::StatusBehindCut, "malloc ", [](const std::string& nth) {
          return Strings{"env", "LD_PRELOAD=" TEST_FAILING_MALLOC, "FAIL_MALLOC=" + nth};
        });
    EXPECT_GE(faults, 10) << request.query;
  }
}
#endif
