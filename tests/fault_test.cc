#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/appliance.h"
#include "tests/program.h"

struct Request {
  std::string query;
  Lines answers;  // all values, and without those that could not be had
};

static const Request requests[] = {
    {"read=/a,/b",
     {json + R"({ "\/a": "1", "\/b": "2" })" + "\n",
      json + R"({ "\/a": "1", "invalid": [ "/b" ] })" + "\n",
      json + R"({ "invalid": [ "/a", "/b" ] })" + "\n"}},
    {"write=/x&value=1", {json + R"({ "write": "\/x", "value": "1", "reply": "ok\r\n" })" + "\n"}},
};

/// What a fault may leave beside a whole answer: a status in its place, or its beginning alone.
enum class Outcome { Whole, Status, Beginning };

static bool isAllowed(Outcome outcome, const Request& request, const std::string& output) {
  const std::size_t status = std::min(output.find(serverError), output.size());
  const std::string end = output.substr(status);
  const bool isDue = outcome == Outcome::Status ? status == 0 && !end.empty()
                                                : outcome == Outcome::Beginning && end.empty();
  return std::any_of(
      request.answers.begin(), request.answers.end(), [&](const std::string& answer) {
        return output == answer || (isDue && answer.compare(0, status, output, 0, status) == 0);
      });
}

/// Where a fault leaves "INJECTED" when it strikes.
static const char* const mark = "/tmp/fault";

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
    EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << what << nth;
    std::ifstream file(mark);
    const std::string trace(std::istreambuf_iterator<char>(file), {});
    if (trace.find("INJECTED") == std::string::npos) return nth - 1;
  }
}

TEST(Faults, OfSystemCallsLeaveASpecifiedAnswerAndNoProcess) {
  const struct {
    std::string calls, errors;
    Outcome outcome;
    int inRead, inWrite;  // how often the request makes the call, at the least
  } rows[] = {
      {"socket", "EMFILE ENFILE ENOMEM", Outcome::Status, 1, 2},
      {"connect", "EINTR EAGAIN ECONNREFUSED", Outcome::Status, 1, 2},
      {"sendto", "EINTR EPIPE ENOMEM", Outcome::Status, 2, 35},
      {"recvfrom", "EINTR ECONNRESET ENOMEM", Outcome::Status, 3, 36},
#ifndef __SANITIZE_ADDRESS__  // its runtime has writes, and an allocator, of its own
      {"write", "EINTR EPIPE EAGAIN", Outcome::Beginning, 3, 3},
#endif
      {"clone,fork,clone3", "EAGAIN ENOMEM", Outcome::Whole, 0, 1},
      {"setsid", "EPERM", Outcome::Whole, 0, 1},
      {"openat,open", "EMFILE ENFILE EINTR", Outcome::Whole, 0, 3},  // of "/dev/null"
  };
  for (const auto& [calls, errors, outcome, inRead, inWrite] : rows) {
    std::istringstream list(errors);
    for (std::string error; list >> error;) {
      const std::string fault = calls + ":error=" + error;
      const auto strace = [&fault, trace = "trace=" + calls](const std::string& nth) {
        Strings command{"strace",
                        "-fqqo",
                        mark,
                        "-E",
                        "ASAN_OPTIONS=detect_leaks=0",
                        "-e",
                        trace,
                        "-e",
                        "inject=" + fault + ":when=" + nth};
        if (fault[0] == 'o') command.insert(command.end(), {"-P", "/dev/null"});
        return command;
      };
      EXPECT_GE(strikeEach(requests[0], outcome, fault, strace), inRead) << fault;
      EXPECT_GE(strikeEach(requests[1], outcome, fault, strace), inWrite) << fault;
    }
  }
}

TEST(Faults, OfForkLeaveTheRestToTheSameProcess) {
  FakeDaemon daemon(answersFrom(applianceTree(), {{"put", "ok"}}));
  const Lines log{"14 ? Setting parameter /x to 1",  // not ours: strace has started it
                  "14 ? Reply from \"put\": ok\r\n",
                  "12 ? Failed to fork child process, continuing in parent process",
                  "14 ? Applied and saved the parameter settings"};
  EXPECT_EQ(respond({"QUERY_STRING=write=/x&value=1"}, "",
                    {"strace", "-qqo", mark, "-E", "ASAN_OPTIONS=detect_leaks=0", "-e",
                     "inject=clone,fork,clone3:error=EAGAIN"}),
            Response(requests[1].answers[0], 0, -1, log));
  EXPECT_EQ(daemon.requests().back(), "save");
}
