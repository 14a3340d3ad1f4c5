#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "cgi/reply.h"
#include "config_client/protocol.h"
#include "tests/appliance.h"
#include "tests/program.h"

static const std::string setting = "14 parent Setting parameter ";

static std::string query(const std::string& fields) { return "QUERY_STRING=" + fields; }

static std::string written(const std::string& name, const std::string& value,
                           const std::string& reply) {
  return json + R"({ "write": ")" + jsonEscape(name) + R"(", "value": ")" + jsonEscape(value) +
         R"(", "reply": ")" + jsonEscape(reply) + "\" }\n";
}

/// A response of the one process, with nothing logged.
static Response answered(const std::string& output) { return {output, 0, -1, {}}; }

static Response failed(const std::string& text) {
  return {serverError + "Exception " + text + "\n", 0, -1, {"11 parent Caught exception " + text}};
}

TEST(Program, AnswersReads) {
  const Tree stored{
      {"/a", "1"}, {"/b", "\"2\"\n\\"}, {"/c", "No such file or directory!"}, {"/\t", ""}};
  const struct {
    const char *fields, *body;
    Strings requests;
  } rows[] = {
      {"read=/a", R"({ "\/a": "1" })", {"ls /a"}},
      {"READ=/a", R"({ "\/a": "1" })", {"ls /a"}},
      {"read=/a&read=/b", R"({ "\/a": "1" })", {"ls /a"}},
      {"read=/a&write=/a&value=2", R"({ "\/a": "1" })", {"ls /a"}},
      {"x=1&read=,/a,", R"({ "\/a": "1" })", {"ls /a"}},
      {"read=/a,%0D%0A/b", R"({ "\/a": "1", "\/b": "\"2\"\n\\" })", {"ls /a", "ls /b"}},
      {"read=/a,/a", R"({ "\/a": "1", "\/a": "1" })", {"ls /a", "ls /a"}},
      {"read=/c", R"({ "\/c": "No such file or directory!" })", {"ls /c"}},
      {"read=/%09", R"({ "\/\t": "" })", {"ls /\t"}},
      {"read=/x, /a,/\"x,/x",
       R"({ "invalid": [ "/x", " /a", "/"x", "/x" ] })",
       {"ls /x", "ls /\"x", "ls /x"}},
      {"read=/x,/a", R"({ "\/a": "1", "invalid": [ "/x" ] })", {"ls /x", "ls /a"}},
      {"read=+", R"({ "invalid": [ " " ] })", {}},
      {"read=,", "", {}},
  };
  for (const auto& [fields, body, requests] : rows) {
    FakeDaemon daemon(answersFrom(stored));
    EXPECT_EQ(runProgram({query(fields)}), answered(json + body + (*body == '\0' ? "" : "\n")))
        << fields;
    EXPECT_EQ(daemon.requests(), requests) << fields;
  }
  FakeDaemon daemon([](const std::string& line) { return line == "ls /b" ? "" : "1/> "; });
  EXPECT_EQ(runProgram({query("read=/a,/b,/c")}),
            answered(json + R"({ "\/a": "1", "invalid": [ "/b", "/c" ] })" + "\n"));
}

TEST(Program, TakesItsFieldsFromEveryKindOfRequest) {
  const Response usual = answered(json + "{ \"\\/a\": \"1\" }\n");
  const Response none = answered("");
  const Response tooLong("", 1, -1, {});
  const Response empty("HTTP/1.1 400 Bad Request\n\n", 0, -1,
                       {"11 parent No parameter names in read request"});
  const std::string post = "REQUEST_METHOD=POST";
  const std::string readA = query("read=/a");
  const std::string form = "CONTENT_TYPE=application/x-www-form-urlencoded";
  const std::string multipart = "CONTENT_TYPE=multipart/form-data; boundary=x";
  const std::string length = "CONTENT_LENGTH=";
  const std::string limit = "CGICC_MAX_CONTENTLENGTH=";
  const std::string part =
      "--x\r\nContent-Disposition: form-data; name=\"read\"\r\n\r\n/a\r\n--x--\r\n";
  const struct {
    Strings environment;
    std::string body;
    Response response;
  } rows[] = {
      {{post, form, length + "7", query("read=/b")}, "read=/a", usual},
      {{post, multipart, length + std::to_string(part.size())}, part, usual},
      {{post, form, length + "7", limit + "7"}, "read=/a", usual},
      {{"REQUEST_METHOD=Post", form, length + "7", limit + "6"}, "read=/a", tooLong},
      {{"REQUEST_METHOD=pUt", form, length + "7", limit + "x"}, "read=/a", tooLong},
      {{"REQUEST_METHOD=GET", length + "1", limit + "0", readA}, "-", usual},
      {{length + "1", limit + "x", readA}, "", usual},
      {{post, limit + "x", readA}, "", usual},
      {{post, form, length + "9"}, "read=/a", failed("I/O error")},
      {{query("read=")}, "", empty},
      {{query("write=/a")}, "", none},
      {{query("value=1&reads=/a")}, "", none},
  };
  for (const auto& [environment, body, response] : rows) {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    EXPECT_EQ(runProgram(environment, body), response) << testing::PrintToString(environment);
  }
}

TEST(Program, RefusesEveryRequestWithoutADaemon) {
  unlink(socketPath);
  for (const char* fields : {"read=/a", "read=", "write=/a&value=1", "write=/a%0A&value=1"}) {
    EXPECT_EQ(runProgram({query(fields)}), answered(serverError)) << fields;
  }
}

TEST(Program, SendsAWriteWithWhatItTriggersEachValueAsOneWord) {
  const std::string toInput2 =
      "enc:venc1/input=in2 enc:venc2/input=in2 rtsp:aenc=2 rtmp:aenc=2 "
      "mux1:component2/encoder=aenc2 mux1:bitrate=4338526";
  const std::string toAudio2 = "rtmp:aenc=2 mux1:component2/encoder=aenc2 mux1:bitrate=4338526";
  const struct {
    std::string name, field, value, others;
  } rows[] = {
      {"in:video/mode", "single_21", "single_21", toInput2},
      {"in:video/mode", "single12", "single12", toInput2},
      {"in:video/mode", "double_2", "double_2", ""},
      {"in:video/mode", "single+2", R"("single 2")", ""},
      {"in:video/modes", "single_2", "single_2", ""},
      {"enc:venc1/frame_ctrl/rate", "1", "1", "enc:venc1/frame_ctrl/enable=no"},
      {"enc:vencX/frame_ctrl/rates", "1", "1", "enc:vencX/frame_ctrl/enable=no"},
      {"enc:venc12/frame_ctrl/rate", "1", "1", ""},
      {"enc:venc1", "1", "1", ""},
      {"rtsp:aencoder", "2", "2", toAudio2},
      {"out:rtsp/streams/stream2/aenc", "2", "2", toAudio2},
      {"out:rtsp/streams/stream10/aenc", "2", "2", ""},
      {"rtmp:aenc", "2", "2", ""},
      {"net:subnet_mask", "255.255.0.0", "255.255.0.0", "net:broadcast_addr=192.168.255.255"},
      {"net:x", "", R"("")", ""},
      {"net:x", "a%0Db%0A", "\"a\rb\n\"", ""},
      {"net:x", "%09", "\"\t\"", ""},
      {"net:x", "%0B", "\"\v\"", ""},
      {"net:x", "%0C", "\"\f\"", ""},
      {"net:x", "+x\"y", R"(" x"y")", ""},
      {"net:x", "x\"y", R"(x"y)", ""},
  };
  for (const auto& [shortName, field, value, others] : rows) {
    const std::string name = paths(shortName)[0];
    FakeDaemon daemon(answersFrom(applianceTree()));
    const Response response = runProgram({query("write=" + name + "&value=" + field)});
    EXPECT_EQ(std::get<0>(response), written(name, value, ""));
    Tree changes = tree(others);
    changes[name] = value;
    std::string expected;
    for (const auto& [path, changed] : changes) expected += "put " + path + ' ' + changed + '\r';
    std::string requests;  // this daemon splits a line also at a quoted carriage return
    for (const std::string& line : daemon.requests()) requests += line + '\r';
    requests.erase(0, requests.find("put "));
    EXPECT_EQ(requests, expected + "apply\rsave\r");
  }
}

TEST(Program, RefusesWhatItCannotWrite) {
  const std::string outOfRange = "basic_string";
  const std::pair<const char*, std::string> rows[] = {
      {"write=/a%0Aput+/b&value=1", "Line break in parameter name"},
      {"write=/a%0D&value=1", "Line break in parameter name"},
      {"write=/a&value=%0D\"", "Line break and double quote in value"},
      {"write=/a&value=\"x%0A", "Line break and double quote in value"},
      {"write=/configuration/encoders/venc&value=1", outOfRange},
      {"write=/configuration/outputs/rtsp/streams/stream&value=1", outOfRange},
      {"write=/configuration/inputs/video/mode&value=single", outOfRange},
  };
  for (const auto& [fields, text] : rows) {
    FakeDaemon daemon(answersFrom({}));
    Response response = runProgram({query(fields)});
    std::string thrown = std::get<0>(response);
    thrown = thrown.substr(std::min(thrown.find(text), thrown.size()));  // the library adds to it
    Strings& log = std::get<3>(response);
    if (text == outOfRange) log.erase(log.begin());  // the setting
    EXPECT_EQ(response, failed(thrown.substr(0, thrown.find('\n')))) << fields;
    EXPECT_EQ(daemon.requests(), Strings{}) << fields;
  }
}

static Strings readsOfAnIpWrite() {
  Strings reads = paths(
      "net:subnet_mask net:broadcast_addr "
      "in:video/in1/logo/imagefile in:video/in2/logo/imagefile in:audio/analog_in1/input "
      "in:audio/analog_in1/micboost enc:aenc3/codec in:video/in1/deinterlacer/mode rtsp:venc "
      "rtmp:venc out:recorder/stream out:recorder/enable "
      "mux1:mode mux1:component1/encoder enc:venc1/codec enc:venc1/h264/bitrate "
      "mux1:component2/encoder enc:aenc1/bitrate mux1:component3/encoder mux1:bitrate "
      "mux2:mode mux2:component1/encoder enc:venc2/codec enc:venc2/h264/bitrate "
      "mux2:component2/encoder enc:aenc2/bitrate mux2:component3/encoder "
      "enc:aenc3/aac/bitrate mux2:bitrate "
      "mux2:component1/encoder enc:venc1/codec enc:venc2/codec "
      "enc:venc1/frame_ctrl/auto enc:venc1/text_overlay/copy_image "
      "enc:venc2/frame_ctrl/auto enc:venc2/text_overlay/copy_image");
  for (std::string& path : reads) path.insert(0, "ls ");
  return reads;
}

TEST(Program, OutlivesADaemonThatGoesAwayAndAppliesWithoutTheWebServer) {
  const std::string ip = "/configuration/network/ip_addr";
  const std::string broadcast = "/configuration/network/broadcast_addr";
  const Answers answers =
      answersFrom(applianceTree(), {{"put", "ok"}, {"apply", "on"}, {"save", "saved"}});
  Strings exchanges = readsOfAnIpWrite();
  const std::size_t reads = exchanges.size();
  exchanges.insert(exchanges.end(), {"put " + broadcast + " 10.0.0.255", "put " + ip + " 10.0.0.5",
                                     "apply", "save"});
  for (std::size_t answered = 0; answered <= exchanges.size(); ++answered) {
    const bool anyIsPut = answered > reads;
    const bool areAllPut = answered > reads + 1;
    const bool isApplied = answered > reads + 2;
    const bool isSaved = answered > reads + 3;
    const std::string putReply = areAllPut ? "ok\r\nok\r\n" : anyIsPut ? "ok\r\n" : "";
    // What a failed put has answered stays, as no later command gets an answer.
    const std::string kept = areAllPut ? "" : putReply;
    const std::string applyReply = isApplied ? "on\r\n" : kept;
    const std::string saveReply = isSaved ? "saved\r\n" : kept;
    Strings log{setting + ip + " to 10.0.0.5"};
    if (answered > 1) log.push_back(setting + broadcast + " to 10.0.0.255");
    if (areAllPut) log.push_back("14 parent Reply from \"put\": " + putReply);
    if (!applyReply.empty()) log.push_back("14 child Reply from \"apply\": " + applyReply);
    if (!saveReply.empty()) log.push_back("14 child Reply from \"save\": " + saveReply);
    log.emplace_back("14 child Applied and saved the parameter settings");

    std::promise<void> output;
    std::size_t left = 1 + answered;  // with the greeting
    FakeDaemon daemon([&](const std::string& line) {
      if (line == "apply") output.get_future().wait();
      return left-- > 0 ? answers(line) : "";
    });
    EXPECT_EQ(
        runProgram({query("write=" + ip + "&value=10.0.0.5")}, "", {}, [&] { output.set_value(); }),
        Response(areAllPut ? written(ip, "10.0.0.5", putReply) : serverError + putReply + "\n", 0,
                 0, log))
        << answered;
    const auto end = exchanges.begin() + static_cast<int>(std::min(answered + 1, exchanges.size()));
    EXPECT_EQ(daemon.requests(), Strings(exchanges.begin(), end)) << answered;
  }
}

TEST(Program, AppliesAndSavesWhateverTheSystemRefuses) {
  const auto strace = [](const std::string& fault) {
    return Strings{"strace", "-qqfo", "/dev/null", "-EASAN_OPTIONS=detect_leaks=0",
                   "-einject=" + fault};
  };
  Strings nullDevice = strace("openat,open:error=EMFILE");
  nullDevice.insert(nullDevice.end(), {"-P", "/dev/null"});
  const std::string reply = written("/x", "1", "ok\r\n");
  const std::string forkFailed = "12 ? Failed to fork child process, continuing in parent process";
  const struct {
    Strings before;
    std::string output, warning;
  } rows[] = {
      {{"sh", "-c", R"("$0" "$@" <&- >&- 2>&-; true)"}, "", ""},
      {strace("write:error=EPIPE:signal=SIGPIPE"), "", ""},
      {strace("clone,fork,clone3:error=EAGAIN"), reply, forkFailed},
      {nullDevice, reply, ""},
  };
  for (const auto& [before, output, warning] : rows) {
    if (before[0] == "strace" && *TEST_EMULATOR != '\0') continue;
    FakeDaemon daemon(answersFrom(applianceTree(), {{"put", "ok"}}));
    const auto [written, exitStatus, childExitStatus, log] =
        runProgram({query("write=/x&value=1")}, "", before);
    EXPECT_EQ(written, output) << before.back();
    EXPECT_EQ(exitStatus, 0) << before.back();
    EXPECT_EQ(log.size(), warning.empty() ? 3U : 4U) << before.back();
    EXPECT_TRUE(warning.empty() || log[2] == warning);
    EXPECT_EQ(daemon.requests().back(), "save") << before.back();
  }
}
