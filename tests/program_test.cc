#include <gtest/gtest.h>

#include <future>

#include "tests/appliance.h"
#include "tests/program.h"
#include "tests/system_log.h"

static const std::string json = "Content-Type: application/json\n\n";
static const std::string badRequest = "HTTP/1.1 400 Bad Request\n\n";
static const std::string serverError = "HTTP/1.1 500 Internal Server Error\n\n";
static const std::string ipPath = "/configuration/network/ip_addr";
static const std::string escapedIpPath = R"(\/configuration\/network\/ip_addr)";
static const std::string applied = "14 child Applied and saved the parameter settings";

/// The whole of one request, seen from outside.
struct Response {
  std::string output;
  int exitStatus, detachedExitStatus;
  Lines log;
};

static Response respond(const Program::Strings& environment, const std::string& body = "",
                        const Program::Strings& before = {}) {
  SystemLog log;
  Program program(environment, body, before);
  Response response;
  response.output = program.output();
  response.exitStatus = program.exitStatus();
  response.detachedExitStatus = program.detachedExitStatus();
  response.log = log.lines({{program.parent(), "parent"}, {program.detached(), "child"}});
  return response;
}

static std::string query(const std::string& fields) { return "QUERY_STRING=" + fields; }

static Program::Strings post(const std::string& type, std::size_t length,
                             const std::string& fields = "") {
  return {"REQUEST_METHOD=POST", "CONTENT_TYPE=" + type, "CONTENT_LENGTH=" + std::to_string(length),
          query(fields)};
}

static const char* const urlencoded = "application/x-www-form-urlencoded";

TEST(Program, AnswersReads) {
  const Tree tree{
      {"/a", "1"}, {"/b", "\"2\"\n\\"}, {"/c", "no such file or directory"}, {"/t\t", ""}};
  const std::string a = R"("\/a": "1")";
  const struct {
    const char* fields;
    std::string body;
    Lines requests;
  } rows[] = {
      {"read=/a", "{ " + a + " }\n", {"ls /a"}},
      {"READ=/a", "{ " + a + " }\n", {"ls /a"}},
      {"read=/a&read=/b", "{ " + a + " }\n", {"ls /a"}},
      {"read=/a&write=/a&value=2", "{ " + a + " }\n", {"ls /a"}},
      {"x=1&read=,/a,", "{ " + a + " }\n", {"ls /a"}},
      {"read=/a,%0D%0A/b",
       "{ " + a +
           R"(, "\/b": "\"2\"\n\\" })"
           "\n",
       {"ls /a", "ls /b"}},
      {"read=/c,/a,/c",
       R"({ "\/c": "no such file or directory", )" + a +
           R"(, "\/c": "no such file or directory" })"
           "\n",
       {"ls /c", "ls /a", "ls /c"}},
      {"read=/t%09",
       R"({ "\/t\t": "" })"
       "\n",
       {"ls /t\t"}},
      {"read=/x,/a, /a,/\"x,/x",
       "{ " + a +
           R"(, "invalid": [ "/x", " /a", "/"x", "/x" ] })"
           "\n",
       {"ls /x", "ls /a", "ls /\"x", "ls /x"}},
      {"read=/x",
       R"({ "invalid": [ "/x" ] })"
       "\n",
       {"ls /x"}},
      {"read=+",
       R"({ "invalid": [ " " ] })"
       "\n",
       {}},
      {"read=,", "", {}},
      {"read=,,", "", {}},
  };
  for (const auto& [fields, body, requests] : rows) {
    FakeDaemon daemon(answersFrom(tree));
    const Response response = respond({query(fields)});
    EXPECT_EQ(response.output, json + body) << fields;
    EXPECT_EQ(response.exitStatus, 0) << fields;
    EXPECT_EQ(response.log, Lines{}) << fields;
    EXPECT_EQ(daemon.requests(), requests) << fields;
  }
}

TEST(Program, TakesItsFieldsFromEveryKindOfRequest) {
  const std::string answer = json + "{ \"\\/a\": \"1\" }\n";
  const std::string parts =
      "--x\r\nContent-Disposition: form-data; name=\"read\"\r\n\r\n/a\r\n--x--\r\n";
  const std::string malformed = "--x\r\nno header\r\n--x--\r\n";
  const std::string multipart = "multipart/form-data; boundary=x";
  const auto limited = [](Program::Strings environment, const char* limit) {
    environment.push_back(std::string("CGICC_MAX_CONTENTLENGTH=") + limit);
    return environment;
  };
  const auto put = [](Program::Strings environment) {
    environment[0] = "REQUEST_METHOD=pUt";
    return environment;
  };
  const auto failure = [](const std::string& text) {
    return serverError + "Exception " + text + "\n";
  };
  const struct {
    Program::Strings environment;
    std::string body, output;
    int exitStatus;
    Lines log;
  } rows[] = {
      {post(urlencoded, 7), "read=/a", answer, 0, {}},
      {post(urlencoded, 7, "read=/b"), "read=/a", answer, 0, {}},
      {post(multipart, parts.size()), parts, answer, 0, {}},
      {limited(post(urlencoded, 7), "7"), "read=/a", answer, 0, {}},
      {limited(post(urlencoded, 7), "6"), "read=/a", "", 1, {}},
      {limited(put(post(urlencoded, 7)), "x"), "read=/a", "", 1, {}},
      {limited({query("read=/a"), "CONTENT_LENGTH=7", "REQUEST_METHOD=GET"}, "6"),
       "",
       answer,
       0,
       {}},
      {post(urlencoded, 9),
       "read=/a",
       failure("I/O error"),
       0,
       {"11 parent Caught exception I/O error"}},
      {post(multipart, malformed.size()),
       malformed,
       failure("Malformed input"),
       0,
       {"11 parent Caught exception Malformed input"}},
      {{query("read=")}, "", badRequest, 0, {"11 parent No parameter names in read request"}},
      {{query("write=/a")}, "", "", 0, {}},
      {{query("value=1")}, "", "", 0, {}},
      {{query("reads=/a&rea=/a")}, "", "", 0, {}},
      {{}, "", "", 0, {}},
  };
  int row = 0;
  for (const auto& [environment, body, output, exitStatus, log] : rows) {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    const Response response = respond(environment, body);
    EXPECT_EQ(response.output, output) << row;
    EXPECT_EQ(response.exitStatus, exitStatus) << row;
    EXPECT_EQ(response.log, log) << row;
    ++row;
  }
}

TEST(Program, AnswersNothingElseWithoutADaemon) {
  unlink("/tmp/cffs_uds");
  for (const char* fields : {"read=/a", "read=", "write=/a&value=1"}) {
    const Response response = respond({query(fields)});
    EXPECT_EQ(response.output, serverError) << fields;
    EXPECT_EQ(response.exitStatus, 0) << fields;
    EXPECT_EQ(response.detachedExitStatus, -1) << fields;
    EXPECT_EQ(response.log, Lines{}) << fields;
  }
}

/// The requests of a write that changes nothing beside what it names, up to the first "put".
static Lines readsOfAWrite(Lines triggered) {
  for (const Lines& rule : {fixedSettingsReads(), muxBitrateReads(), videoEncoderReads()}) {
    triggered.insert(triggered.end(), rule.begin(), rule.end());
  }
  for (std::string& path : triggered) path.insert(0, "ls ");
  return triggered;
}

TEST(Program, WritesAParameterWithThoseThatDependOnIt) {
  Tree tree = applianceTree();
  tree["/configuration/outputs/recorder/stream"] = "1";
  tree["/configuration/outputs/ts/muxer/mux1/bitrate"] = "1";
  FakeDaemon daemon(answersFrom(tree, {{"put", "stored"}, {"save", "saved"}}));
  const Response response = respond({query("write=" + ipPath + "&value=10.0.0.5")});
  EXPECT_EQ(response.output, json + "{ \"write\": \"" + escapedIpPath +
                                 R"(", "value": "10.0.0.5", "reply": ")" +
                                 R"(stored\r\nstored\r\nstored\r\nstored\r\n" })"
                                 "\n");
  EXPECT_EQ(response.exitStatus, 0);
  EXPECT_EQ(response.detachedExitStatus, 0);
  Lines requests = readsOfAWrite(
      {"/configuration/network/subnet_mask", "/configuration/network/broadcast_addr"});
  requests.insert(requests.end(),
                  {"put /configuration/network/broadcast_addr 10.0.0.255",
                   "put " + ipPath + " 10.0.0.5", "put /configuration/outputs/recorder/stream 2",
                   "put /configuration/outputs/ts/muxer/mux1/bitrate 4466526", "apply", "save"});
  EXPECT_EQ(daemon.requests(), requests);
  const std::string stored = "stored\r\n";
  EXPECT_EQ(
      response.log,
      (Lines{"14 parent Setting parameter " + ipPath + " to 10.0.0.5",
             "14 parent Setting parameter /configuration/network/broadcast_addr to 10.0.0.255",
             "14 parent Setting parameter /configuration/outputs/recorder/stream to 2",
             "14 parent Setting parameter /configuration/outputs/ts/muxer/mux1/bitrate to 4466526",
             "14 parent Reply from \"put\": stored\r\nstored\r\nstored\r\nstored\r\n",
             "14 child Reply from \"save\": saved\r\n", applied}));
}

TEST(Program, SendsAnyValueAsOneWord) {
  const struct {
    const char *field, *sent, *echoed;
  } rows[] = {
      {"", R"("")", R"(\"\")"},
      {"a+b", R"("a b")", R"(\"a b\")"},
      {"a%0Db%0A", "\"a\rb\n\"", R"(\"a\rb\n\")"},
      {"%0B", "\"\v\"", "\\\"\v\\\""},
      {"+x\"y", R"(" x"y")", R"(\" x\"y\")"},
      {"x\"y", R"(x"y)", R"(x\"y)"},
  };
  for (const auto& [field, sent, echoed] : rows) {
    FakeDaemon daemon(answersFrom(applianceTree()));
    const Response response = respond({query(std::string("write=/x&value=") + field)});
    EXPECT_EQ(response.output, json + R"({ "write": "\/x", "value": ")" + echoed +
                                   R"(", "reply": "" })"
                                   "\n");
    std::string all;  // this daemon splits a line also at a quoted carriage return
    for (const std::string& line : daemon.requests()) all += line + '\r';
    EXPECT_NE(all.find(std::string("\rput /x ") + sent + "\rapply\rsave\r"), std::string::npos)
        << sent;
  }
}

TEST(Program, TriggersARuleByFixedStretchesOfTheName) {
  const std::string encoders = "/configuration/encoders/";
  const std::string outputs = "/configuration/outputs/";
  const Lines single{encoders + "venc1/input",
                     encoders + "venc2/input",
                     outputs + "rtsp/streams/stream1/aenc",
                     outputs + "rtmp/streams/stream1/aenc",
                     outputs + "ts/muxer/mux1/component2/encoder",
                     outputs + "ts/muxer/mux2/component2/encoder"};
  const Lines audio{single[3], single[4]};
  const std::string mode = "/configuration/inputs/video/mode";
  const struct {
    std::string name, value;
    Lines reads;
  } rows[] = {
      {mode, "single_1", single},
      {mode, "single12", single},
      {mode, "double", {}},
      {mode, "single+1", {}},  // quoted
      {mode + "s", "single_1", {}},
      {encoders + "venc1/frame_ctrl/rate", "1", {encoders + "venc1/frame_ctrl/enable"}},
      {encoders + "vencX/frame_ctrl/rates", "1", {encoders + "vencX/frame_ctrl/enable"}},
      {encoders + "venc12/frame_ctrl/rate", "1", {}},
      {encoders + "venc1", "1", {}},
      {outputs + "rtsp/streams/stream1/aencoder", "1", audio},
      {outputs + "rtsp/streams/stream2/aenc", "1", audio},
      {outputs + "rtsp/streams/stream10/aenc", "1", {}},
      {outputs + "rtmp/streams/stream1/aenc", "1", {}},
      {"/configuration/network/subnet_mask",
       "255.255.255.0",
       {ipPath, "/configuration/network/broadcast_addr"}},
  };
  for (const auto& [name, value, reads] : rows) {
    FakeDaemon daemon(answersFrom(applianceTree()));
    EXPECT_EQ(respond({query("write=" + name + "&value=" + value)}).exitStatus, 0) << name;
    Lines requests = daemon.requests();
    // What depends on the written value is another test's.
    Lines first(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(reads.size()) + 1);
    Lines expected = readsOfAWrite(reads);
    expected.resize(reads.size() + 1);
    EXPECT_EQ(first, expected) << name << ' ' << value;
  }
}

TEST(Program, RefusesWhatItCannotWrite) {
  const struct {
    const char *fields, *text;
    bool logsSetting;
  } rows[] = {
      {"write=/a%0Aput+/b&value=1", "Line break in parameter name", false},
      {"write=/a%0D&value=1", "Line break in parameter name", false},
      {"write=/a&value=%0D\"", "Line break and double quote in value", false},
      {"write=/a&value=\"x%0A", "Line break and double quote in value", false},
      {"write=/configuration/encoders/venc&value=1", "basic_string", true},
      {"write=/configuration/outputs/rtsp/streams/stream&value=1", "basic_string", true},
      {"write=/configuration/inputs/video/mode&value=single", "basic_string", true},
  };
  for (const auto& [fields, text, logsSetting] : rows) {
    FakeDaemon daemon(answersFrom({}));
    const Response response = respond({query(fields)});
    EXPECT_EQ(response.output.rfind(serverError + "Exception " + text, 0), 0U) << response.output;
    EXPECT_EQ(response.output.back(), '\n');
    EXPECT_EQ(response.exitStatus, 0) << fields;
    EXPECT_EQ(response.detachedExitStatus, -1) << fields;
    EXPECT_EQ(daemon.requests(), Lines{}) << fields;
    ASSERT_EQ(response.log.size(), logsSetting ? 2U : 1U) << fields;
    EXPECT_EQ(response.log.back().rfind(std::string("11 parent Caught exception ") + text, 0), 0U);
  }
}

TEST(Program, LetsGoOfTheWebServerBeforeItApplies) {
  std::promise<void> done;
  const std::shared_future<void> held(done.get_future());
  const Answers answers = answersFrom(applianceTree());
  FakeDaemon daemon([&](const std::string& line) {
    if (line == "apply") held.wait();
    return answers(line);
  });
  SystemLog log;
  Program program({query("write=/x&value=1")});
  EXPECT_EQ(program.output().substr(0, json.size()), json);  // its end is seen here
  EXPECT_EQ(program.exitStatus(), 0);
  done.set_value();
  EXPECT_EQ(program.detachedExitStatus(), 0);
  EXPECT_EQ(log.lines({{program.detached(), "child"}}).back(), applied);
}

TEST(Program, AppliesInTheSameProcessWhenItCannotFork) {
  if (*TEST_EMULATOR != '\0') GTEST_SKIP() << "strace does not see inside an emulator";
  FakeDaemon daemon(answersFrom(applianceTree(), {{"apply", "slow"}}));
  const Response response =
      respond({query("write=/x&value=1"), "ASAN_OPTIONS=detect_leaks=0"}, "",
              {"strace", "-o", "/dev/null", "-e", "inject=clone,fork,clone3:error=EAGAIN"});
  EXPECT_EQ(response.output.substr(0, json.size()), json);
  EXPECT_EQ(response.exitStatus, 0);
  EXPECT_EQ(daemon.requests().back(), "save");
  EXPECT_EQ(response.log.size(), 4U);
  EXPECT_EQ(response.log[1].substr(0, 3), "12 ");
  EXPECT_NE(response.log[1].find("Failed to fork child process, continuing in parent process"),
            std::string::npos);
}

TEST(Program, OutlivesADaemonThatGoesAwayInTheMiddle) {
  const Tree tree{{"/a", "1"}, {"/b", "2"}, {"/c", "3"}};
  const char* const outputs[] = {R"({ "invalid": [ "/a", "/b", "/c" ] })",
                                 R"({ "\/a": "1", "invalid": [ "/b", "/c" ] })",
                                 R"({ "\/a": "1", "\/b": "2", "invalid": [ "/c" ] })",
                                 R"({ "\/a": "1", "\/b": "2", "\/c": "3" })"};
  for (std::size_t gone = 1; gone <= 4; ++gone) {
    FakeDaemon daemon(goneAt(gone, answersFrom(tree)));
    const Response response = respond({query("read=/a,/b,/c")});
    EXPECT_EQ(response.output, json + outputs[gone - 1] + "\n");
    EXPECT_EQ(response.log, Lines{});
    EXPECT_EQ(response.exitStatus, 0);
    EXPECT_EQ(response.detachedExitStatus, -1);
  }

  const std::size_t reads = readsOfAWrite({"mask", "broadcast"}).size();
  const std::string setting = "14 parent Setting parameter ";
  for (std::size_t gone = 1; gone <= reads + 5; ++gone) {
    FakeDaemon daemon(goneAt(gone, answersFrom(applianceTree(), {{"put", "ok"}, {"apply", "on"}})));
    const Response response = respond({query("write=" + ipPath + "&value=10.0.0.5")});
    Lines log{setting + ipPath + " to 10.0.0.5"};
    if (gone > 2) log.push_back(setting + "/configuration/network/broadcast_addr to 10.0.0.255");
    if (gone <= reads + 2) {
      const std::string answered = gone == reads + 2 ? "ok\r\n" : "";
      EXPECT_EQ(response.output, serverError + answered + "\n") << gone;
      if (!answered.empty()) {
        log.insert(log.end(), {"14 child Reply from \"apply\": ok\r\n",
                               "14 child Reply from \"save\": ok\r\n"});
      }
    } else {
      EXPECT_EQ(response.output, json + R"({ "write": ")" + escapedIpPath +
                                     R"(", "value": "10.0.0.5", "reply": "ok\r\nok\r\n" })"
                                     "\n");
      log.push_back("14 parent Reply from \"put\": ok\r\nok\r\n");
      if (gone > reads + 3) log.push_back("14 child Reply from \"apply\": on\r\n");
    }
    log.push_back(applied);
    EXPECT_EQ(response.log, log) << gone;
    EXPECT_EQ(response.exitStatus, 0) << gone;
    EXPECT_EQ(response.detachedExitStatus, 0) << gone;
  }
}
