// The program as the interpreter of a script with limits.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>

#include "tests/program.h"

using namespace std::chrono_literals;

// qemu sets no such limit, and the sanitizer takes more address space than any.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" __attribute__((weak)) void __asan_init();
static const bool hasMemoryLimit = !isEmulated && __asan_init == nullptr;

static const char* const interpreter = "/tmp/limits/tzr4417.cgi";
static const char* const script = "/tmp/script";
static const std::string header = "HTTP_X_REQUESTED_WITH=";
static const std::string readA = query("read=/a");
static const Strings writeX{query("write=/x&value=1"), header + "x"};
static const std::string writer = "14 parent Write by nobody from nowhere";
static const std::string setting = "14 parent Setting parameter /x to 1";
static const std::string saved = "14 child Applied and saved the parameter settings";
static const std::string stored = json + R"({ "write": "\/x", "value": "1", "reply": "" })" + "\n";

// A command to run the program under, deaf to signals. It holds the other end of the full pipe.
static const Strings withFullPipe{"bash", "--norc", "-c",
                                  "rm -f /tmp/pipe; mkfifo /tmp/pipe; exec 3<>/tmp/pipe; "
                                  "dd if=/dev/zero of=/tmp/pipe oflag=nonblock 2>/dev/null; "
                                  "exec env --block-signal --ignore-signal \"$0\" \"$@\" >&3"};

static Response forbidden(const std::string& reason, const std::string& refused) {
  const std::string head = "HTTP/1.1 403 Forbidden\nContent-Type: text/plain\n\n";
  return {head + reason + "\n", 0, noProcess, {"12 parent Refused a " + refused}};
}

static Response runScript(const std::string& settings, Request request) {
  std::filesystem::create_directory("/tmp/limits");
  std::error_code exists;
  std::filesystem::create_symlink(TEST_PROGRAM, interpreter, exists);
  std::ofstream(script) << "#!" << interpreter << "\n" << settings;
  request.program = {interpreter, script};
  return runProgram(request);
}

/// Sends a program the signal of its time limit, once it waits in a function of the kernel with
/// `part` in its name. Returns also if it ends.
static void interrupt(pid_t process, const char* part) {
  const std::string folder = "/proc/" + std::to_string(process);
  std::string function;
  while (function.find(part) == std::string::npos && std::filesystem::exists(folder + "/exe")) {
    usleep(1000);
    std::ifstream(folder + "/wchan") >> function;
  }
  kill(process, SIGALRM);
}

/// Runs the script while the daemon, which has a tree, never answers the request `silentAt`.
static Response runInSilence(const std::string& silentAt, const std::string& settings,
                             const Request& request, const char* interruptedIn = nullptr) {
  Tree values = applianceTree();
  values["/a"] = "1";
  std::promise<void> ended;
  FakeDaemon daemon([&](const std::string& line) {
    if (line == silentAt) {
      if (interruptedIn != nullptr) interrupt(daemon.client(), interruptedIn);
      ended.get_future().wait();
    }
    return answersFrom(values)(line);
  });
  Response response = runScript(settings, request);
  ended.set_value();
  return response;
}

TEST(Limits, HoldForTheProgram) {
  std::string limits;
  FakeDaemon daemon([&](const std::string&) {
    std::ifstream file("/proc/" + std::to_string(daemon.client()) + "/limits");
    std::string word;
    while (file >> word) limits += word + ' ';
    for (const int ignored : {SIGTERM, SIGHUP}) kill(daemon.client(), ignored);
    return "1\r\n/> ";
  });
  const std::string settings =
      "\n\t # an indented comment\ncpu_limit=700\n process_limit\t= 9999 \r\nbody_limit = 7\n"
      "time_limit = 2000000\nchild_limit = 2000000\n";
  EXPECT_EQ(
      runScript(settings + (hasMemoryLimit ? "memory_limit = 2000000" : ""),
                {{post, form, length + "7", "CGICC_MAX_CONTENTLENGTH=1", header + "x"}, "read=/a"}),
      usual);
  const char* const space = hasMemoryLimit ? " space 2048000000 2048000000 " : "";
  for (const char* const limit : {" cpu time 700 700 ", " processes 9999 9999 ", space}) {
    EXPECT_NE(limits.find(limit), std::string::npos) << limit << limits;
  }
}

TEST(Limits, AreRefusedByTheNumberOfTheLine) {
  Request request{{readA}, "", withoutInput};  // an error before the script's is none of its lines
  for (const std::string row : {"cpu_limit 6", "cpu_limits = 6", "cpu_limit = 6O", "cpu_limit = 0",
                                "cpu_limit = 6 # seconds", "time_limit = 2000001", "cpu_limit = -1",
                                "cpu_limit = ", "writer = ", "= 6"}) {
    EXPECT_EQ(runScript("# before it\n\n" + row, request), failed("Cannot set line 4")) << row;
  }
  if (hasMemoryLimit) {
    EXPECT_EQ(runScript("memory_limit = 1", request),
              failed("Cannot set line 2: Cannot allocate memory"));
  }
  request.program = {interpreter};
  EXPECT_EQ(runProgram(request), failed("Cannot read : No such file or directory"));
  request.program = {interpreter, "/tmp"};
  EXPECT_EQ(runProgram(request), failed("Cannot read /tmp: Is a directory"));
  request.program = {TEST_PROGRAM, "/tmp"};  // the usual path
  FakeDaemon daemon(answersFrom({{"/a", "1"}}));
  EXPECT_EQ(runProgram(request), usual);
  prctl(PR_CAPBSET_DROP, CAP_SYS_RESOURCE);  // root may raise a limit otherwise
  request.before = {"prlimit", "--cpu=5"};
  EXPECT_EQ(runScript("cpu_limit = 6", request),
            failed("Cannot set line 2: Operation not permitted"));
}

TEST(Limits, LetNoForgedRequestThrough) {
  const auto refused = [](const std::string& method) {
    return forbidden("No X-Requested-With header", method + " request without X-Requested-With");
  };
  const struct {
    Strings environment;
    Response response;
  } rows[] = {
      {{post, form, length + "7", header}, refused("POST")},
      {{post, form, length + "7", query("reads&read=/a")}, refused("POST")},
      {{query("writes&read=/a")}, refused("nameless")},
      {{post, form, length + "7", readA}, usual},
      {{query("x&read=/a"), header + "x"}, usual},
  };
  for (const auto& [environment, response] : rows) {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    EXPECT_EQ(runScript("", {environment, "write=a"}), response)
        << testing::PrintToString(environment);
  }
  EXPECT_EQ(runScript("time", {{post, form, length + "7"}, "write=a"}),
            failed("Cannot set line 2"));
}

TEST(Limits, InterruptAProgramThatWaits) {
  const Response partly = replied(json + R"({ "\/a": "1", "invalid": [ "/b", "/c" ] })" + "\n");
  const Response notPut{serverError + "\n", 0, 0, {writer, setting, saved}};
  const struct {
    std::string silentAt;
    Strings environment;
    Response response;
  } rows[] = {
      {"ls /b", {query("read=/a,/b,/c")}, partly},
      {"", writeX, replied(serverError)},
      {"ls " + paths("mux2:mode")[0], writeX, notPut},
      {"put /x 1", writeX, notPut},
  };
  for (const auto& [silentAt, environment, response] : rows) {
    EXPECT_EQ(runInSilence(silentAt, "time_limit = 600", {environment}, "unix_stream"), response)
        << silentAt;
  }
  if (isEmulated) return;
  const auto [output, status, childStatus, log] =
      runInSilence("apply", "time_limit = 600", {writeX, "", strace(forkFails)}, "unix_stream");
  EXPECT_EQ(output, stored);
  EXPECT_EQ(status, SIGALRM);
}

TEST(Limits, EndAProgramThatNothingInterrupts) {
  const auto begin = std::chrono::steady_clock::now();
  {
    FakeDaemon daemon([](const std::string&) { return ""; });  // the program reads for ever
    EXPECT_EQ(runScript("cpu_limit = 1", {{readA}}), (Response{"", SIGKILL, noProcess, {}}));
  }
  EXPECT_EQ(runInSilence("apply", "time_limit = 600\nchild_limit = 2", {writeX}),
            (Response{stored, 0, SIGALRM, {writer, setting}}));
  EXPECT_EQ(runInSilence("", "time_limit = 2", {{readA}, "", withFullPipe}),  // waits twice
            (Response{"", SIGALRM, noProcess, {}}));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s + 2s + (2s + 5s));
}

TEST(Limits, LetWritesTakeTurns) {
  const int turn = open(script, O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_EQ(flock(turn, LOCK_SH), 0);
  {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    Request write{writeX};
    EXPECT_EQ(runScript("time_limit = 9\nwriter = x", write),
              forbidden("This user may not write", "write by nobody from nowhere"));
    write.whenStarted = [](pid_t process) { interrupt(process, "lock_inode_wait"); };
    EXPECT_EQ(runScript("time_limit = 600", write), replied(serverError));
    EXPECT_EQ(runScript("writer = x", {{readA}}), usual);
    EXPECT_EQ(daemon.requests(), "ls /a\n");
  }
  flock(turn, LOCK_UN);
  // Nobody takes the reply, or there is no child, nor its time limit.
  const std::string secondLimit = "-einject=?alarm,setitimer:signal=KILL:when=2";
  const Strings rows[] = {{}, withFullPipe, strace(forkFails, {secondLimit})};
  for (const Strings& before : rows) {
    const bool hasChild = before.empty() || before[0] != "strace";
    if (!hasChild && isEmulated) continue;
    SCOPED_TRACE(testing::PrintToString(before));
    std::promise<void> isAnswered;
    FakeDaemon daemon([&](const std::string& line) {
      const bool isLeft = hasChild && (line == "apply" || line == "save");
      if (hasChild && line == "apply") isAnswered.get_future().wait();
      EXPECT_EQ(flock(turn, LOCK_EX | LOCK_NB), isLeft ? 0 : -1) << line;
      flock(turn, LOCK_UN);
      return answersFrom(applianceTree())(line);
    });
    Request request{writeX, "", before};
    request.whenStarted = [](pid_t process) { interrupt(process, "pipe_write"); };
    request.whenAnswered = [&] { isAnswered.set_value(); };
    const auto [output, status, childStatus, log] =
        runScript("time_limit = 600\nchild_limit = 300", request);
    EXPECT_EQ(childStatus, hasChild ? 0 : noProcess);
    EXPECT_NE(daemon.requests().find("\nsave\n"), std::string::npos);
  }
  close(turn);
}

TEST(Limits, LetOnlyWritersWrite) {
  const std::string longName = "a\tb" + std::string(61, 'x');
  const char* const two = "writer = ann\nwriter= bob lee \r\n";
  const struct {
    const char* settings;
    std::string user, logged;
    bool mayWrite;
  } rows[] = {
      {"", "ann", "ann", true},     {"", longName + "x", "a?b" + longName.substr(3), true},
      {two, "ann", "ann", true},    {two, "bob lee", "bob lee", true},
      {two, "anne", "anne", false}, {two, "an", "an", false},
      {two, "Ann", "Ann", false},   {two, "", "nobody", false},
  };
  for (const auto& [settings, user, logged, mayWrite] : rows) {
    FakeDaemon daemon(answersFrom(applianceTree()));
    Request request{{writeX[0], writeX[1], "REMOTE_USER=" + user, "REMOTE_ADDR=10.0.0.9"}};
    const std::string write = "rite by " + logged + " from 10.0.0.9";
    EXPECT_EQ(runScript(settings, request),
              mayWrite ? (Response{stored, 0, 0, {"14 parent W" + write, setting, saved}})
                       : forbidden("This user may not write", "w" + write))
        << settings << user;
  }
}
