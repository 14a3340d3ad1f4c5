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

#include "tests/appliance.h"
#include "tests/program.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

static const bool isEmulated = *TEST_EMULATOR != '\0';
// qemu sets no such limit, and the sanitizer takes more address space than any.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" __attribute__((weak)) void __asan_init();
static const bool hasMemoryLimit = !isEmulated && __asan_init == nullptr;

static const char* const interpreter = "/tmp/limits/tzr4417.cgi";
static const char* const script = "/tmp/script";
static const std::string post = "REQUEST_METHOD=POST";
static const std::string form = "CONTENT_TYPE=application/x-www-form-urlencoded";
static const std::string header = "HTTP_X_REQUESTED_WITH=";
static const std::string readA = query("read=/a");
static const std::string writeX = query("write=/x&value=1");
static const std::string setting = "14 parent Setting parameter /x to 1";
static const std::string saved = "14 child Applied and saved the parameter settings";
static const Response usual = answered(json + "{ \"\\/a\": \"1\" }\n");

static Response runScript(
    const std::string& settings, const Strings& environment, const std::string& body = "",
    const Strings& before = {}, const std::function<void()>& whenAnswered = [] {}) {
  std::filesystem::create_directory("/tmp/limits");
  std::error_code exists;
  std::filesystem::create_symlink(TEST_PROGRAM, interpreter, exists);
  std::ofstream(script) << "#!" << interpreter << "\n" << settings;
  return runProgram(environment, body, before, whenAnswered, {interpreter, script});
}

TEST(Limits, HoldForTheProgram) {
  std::string limits;
  FakeDaemon daemon([&](const std::string&) {
    std::ifstream file("/proc/" + std::to_string(daemon.client()) + "/limits");
    std::string word;
    while (file >> word) limits += word + ' ';
    return "1\r\n/> ";
  });
  const std::string memory = hasMemoryLimit ? "memory_limit = 2000000\n" : "";
  EXPECT_EQ(runScript("\n\t # an indented comment\n" + memory +
                          "cpu_limit=7\n process_limit\t= 9999 \r\nbody_limit = 7\n"
                          "time_limit = 2000000\nchild_limit = 2000000",
                      {post, form, "CONTENT_LENGTH=7", "CGICC_MAX_CONTENTLENGTH=1", header + "x"},
                      "read=/a"),
            usual);
  EXPECT_NE(limits.find(" cpu time 7 7 "), std::string::npos) << limits;
  EXPECT_NE(limits.find(" processes 9999 9999 "), std::string::npos) << limits;
  if (!memory.empty()) {
    EXPECT_NE(limits.find(" space 2048000000 2048000000 "), std::string::npos) << limits;
  }
}

TEST(Limits, AreRefusedByTheNumberOfTheLine) {
  const char* const rows[] = {"cpu_limit 6",
                              "cpu_limits = 6",
                              "cpu_limit = 6O",
                              "cpu_limit = 0",
                              "cpu_limit = 6 # seconds",
                              "time_limit = 2000001",
                              "cpu_limit = -1",
                              "cpu_limit = ",
                              "= 6"};
  FakeDaemon daemon(answersFrom({}));
  for (const std::string row : rows) {
    EXPECT_EQ(runScript("# before it\n\n" + row, {readA}), failed("Cannot set line 4")) << row;
  }
  if (hasMemoryLimit) {
    EXPECT_EQ(runScript("memory_limit = 1", {readA}),
              failed("Cannot set line 2: Cannot allocate memory"));
  }
  prctl(PR_CAPBSET_DROP, CAP_SYS_RESOURCE);  // root may raise a limit otherwise
  EXPECT_EQ(runScript("cpu_limit = 6", {readA}, "", {"prlimit", "--cpu=5"}),
            failed("Cannot set line 2: Operation not permitted"));
  EXPECT_EQ(runProgram({readA}, "", {}, [] {}, {interpreter}),
            failed("Cannot read : No such file or directory"));
  EXPECT_EQ(runProgram({readA}, "", {}, [] {}, {interpreter, "/tmp"}),
            failed("Cannot read /tmp: Is a directory"));
  EXPECT_EQ(daemon.requests(), Strings{});
}

TEST(Limits, BindOnlyTheInterpreter) {
  runScript("a script with an error", {readA});
  FakeDaemon daemon(answersFrom({{"/a", "1"}}));
  EXPECT_EQ(runProgram({readA}, "", {}, [] {}, {TEST_PROGRAM, script}), usual);
}

TEST(Limits, LetNoForgedRequestThrough) {
  const auto refused = [](const std::string& method) {
    return Response{
        "HTTP/1.1 403 Forbidden\nContent-Type: text/plain\n\nNo X-Requested-With header\n",
        0,
        -1,
        {"12 parent Refused a " + method + " request without X-Requested-With"}};
  };
  const std::string length = "CONTENT_LENGTH=16";
  const std::string write = "write=/a&value=2";
  const struct {
    Strings environment;
    Response response;
    std::string settings;
  } rows[] = {
      {{post, form, length, header}, refused("POST"), ""},
      {{post, form, length, query("reads&read=/a")}, refused("POST"), ""},
      {{query("writes&read=/a")}, refused("nameless"), ""},
      {{post, form, length, readA}, usual, ""},
      {{query("x&read=/a"), header + "x"}, usual, ""},
      {{post, form, length}, failed("Cannot set line 2"), "time"},
  };
  for (const auto& [environment, response, settings] : rows) {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    EXPECT_EQ(runScript(settings, environment, write), response)
        << testing::PrintToString(environment);
  }
}

TEST(Limits, InterruptAProgramThatWaits) {
  const std::string reply = json + R"({ "write": "\/x", "value": "1", "reply": "" })" + "\n";
  const Response failedWrite{serverError + "\n", 0, 0, {setting, saved}};
  const Strings withoutChild = strace("clone,fork,clone3:error=EAGAIN");
  const struct {
    std::string silentAt, request;
    Response response;
    Strings before;
  } rows[] = {
      {"ls /b",
       query("read=/a,/b,/c"),
       answered(json + R"({ "\/a": "1", "invalid": [ "/b", "/c" ] })" + "\n"),
       {}},
      {"", writeX, answered(serverError), {}},
      {"ls " + paths("mux2:mode")[0], writeX, failedWrite, {}},
      {"put /x 1", writeX, failedWrite, {}},
      {"apply", writeX, {reply, 0, 128 + SIGALRM, {setting}}, {}},
      {"apply", writeX, {reply, 128 + SIGALRM, -1, {}}, withoutChild},
  };
  Tree stored = applianceTree();
  stored["/a"] = "1";
  for (const auto& [silentAt, request, response, before] : rows) {
    if (!before.empty() && isEmulated) continue;
    std::promise<void> ended;
    FakeDaemon daemon([&, &place = silentAt](const std::string& line) {
      if (line == place) ended.get_future().wait();
      return answersFrom(stored)(line);
    });
    const auto begin = Clock::now();
    Response actual =
        runScript("time_limit = 2\nchild_limit = 3", {request, header + "x"}, "", before);
    EXPECT_GE(Clock::now() - begin, response.childExitStatus > 0 ? 3s : 2s) << silentAt;
    ended.set_value();
    if (!before.empty()) actual.log.clear();  // nobody's child
    EXPECT_EQ(actual, response) << silentAt;
  }
}

TEST(Limits, EndAProgramThatNothingInterrupts) {
  const struct {
    const char* settings;
    int signal;
    std::chrono::seconds least;
  } rows[] = {{"time_limit = 1", SIGALRM, 6s}, {"cpu_limit = 1", SIGKILL, 1s}};
  for (const auto& [settings, signal, least] : rows) {
    FakeDaemon daemon([](const std::string&) { return ""; });  // the program reads for ever
    const auto begin = Clock::now();
    EXPECT_EQ(runScript(settings, {readA}, "", {"env", "--block-signal", "--ignore-signal"}),
              (Response{"", 128 + signal, -1, {}}));
    EXPECT_GE(Clock::now() - begin, least) << settings;
  }
}

TEST(Limits, LetWritesTakeTurns) {
  runScript("", {});
  const int turn = open(script, O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(flock(turn, LOCK_EX), 0);
  {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    const auto begin = Clock::now();
    EXPECT_EQ(runScript("time_limit = 1", {writeX, header + "x"}), answered(serverError));
    EXPECT_GE(Clock::now() - begin, 1s);
    EXPECT_EQ(runScript("time_limit = 9", {readA}), usual);
    EXPECT_EQ(daemon.requests(), Strings{"ls /a"});
  }
  flock(turn, LOCK_UN);
  std::promise<void> answered;
  FakeDaemon daemon([&](const std::string& line) {
    if (line == "apply") answered.get_future().wait();
    const bool isOver = line == "apply" || line == "save";
    EXPECT_EQ(flock(turn, LOCK_EX | LOCK_NB), isOver ? 0 : -1) << line;
    return answersFrom(applianceTree())(line);
  });
  const Response response =
      runScript("", {writeX, header + "x"}, "", {}, [&] { answered.set_value(); });
  EXPECT_EQ(response.log, (Strings{setting, saved}));
  close(turn);
}
