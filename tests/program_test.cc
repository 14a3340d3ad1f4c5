#include <gtest/gtest.h>

#include <future>

#include "config_client/protocol.h"
#include "tests/appliance.h"
#include "tests/program.h"

static const std::string setting = "14 parent Setting parameter ";
static const std::string ipSetting = setting + "/configuration/network/ip_addr to 10.0.0.5";
static const std::string broadcastSetting =
    setting + "/configuration/network/broadcast_addr to 10.0.0.255";
static const std::string applied = "14 child Applied and saved the parameter settings";

static const char* const writeIp =
    "QUERY_STRING=write=/configuration/network/ip_addr&value=10.0.0.5";

static std::string query(const std::string& fields) { return "QUERY_STRING=" + fields; }

static std::string written(const std::string& name, const std::string& value,
                           const std::string& reply) {
  return json + R"({ "write": ")" + name + R"(", "value": ")" + value + R"(", "reply": ")" + reply +
         "\" }\n";
}

static std::string writtenIp(const std::string& reply) {
  return written(R"(\/configuration\/network\/ip_addr)", "10.0.0.5", reply);
}

/// The requests of a write that changes nothing beside what it names, up to the first "put".
static Lines readsOfAWrite(Lines triggered) {
  for (const Lines& rule : {fixedSettingsReads(), muxBitrateReads(), videoEncoderReads()}) {
    triggered.insert(triggered.end(), rule.begin(), rule.end());
  }
  for (std::string& path : triggered) path.insert(0, "ls ");
  return triggered;
}

/// A response of the one process, with nothing logged.
static Response answered(const std::string& output) { return {output, 0, -1, {}}; }

static Response failed(const std::string& text) {
  return {serverError + "Exception " + text + "\n", 0, -1, {"11 parent Caught exception " + text}};
}

TEST(Program, AnswersReads) {
  const Tree stored{
      {"/a", "1"}, {"/b", "\"2\"\n\\"}, {"/c", "no such file or directory"}, {"/\t", ""}};
  const struct {
    const char *fields, *body;
    Lines requests;
  } rows[] = {
      {"read=/a", R"({ "\/a": "1" })", {"ls /a"}},
      {"READ=/a", R"({ "\/a": "1" })", {"ls /a"}},
      {"read=/a&read=/b", R"({ "\/a": "1" })", {"ls /a"}},
      {"read=/a&write=/a&value=2", R"({ "\/a": "1" })", {"ls /a"}},
      {"x=1&read=,/a,", R"({ "\/a": "1" })", {"ls /a"}},
      {"read=/a,%0D%0A/b", R"({ "\/a": "1", "\/b": "\"2\"\n\\" })", {"ls /a", "ls /b"}},
      {"read=/a,/a", R"({ "\/a": "1", "\/a": "1" })", {"ls /a", "ls /a"}},
      {"read=/c", R"({ "\/c": "no such file or directory" })", {"ls /c"}},
      {"read=/%09", R"({ "\/\t": "" })", {"ls /\t"}},
      {"read=/x, /a,/\"x,/x",
       R"({ "invalid": [ "/x", " /a", "/"x", "/x" ] })",
       {"ls /x", "ls /\"x", "ls /x"}},
      {"read=/x,/a", R"({ "\/a": "1", "invalid": [ "/x" ] })", {"ls /x", "ls /a"}},
      {"read=+", R"({ "invalid": [ " " ] })", {}},
      {"read=,", "", {}},
      {"read=,,", "", {}},
  };
  for (const auto& [fields, body, requests] : rows) {
    FakeDaemon daemon(answersFrom(stored));
    EXPECT_EQ(respond({query(fields)}), answered(json + body + (*body == '\0' ? "" : "\n")))
        << fields;
    EXPECT_EQ(daemon.requests(), requests) << fields;
  }
}

TEST(Program, TakesItsFieldsFromEveryKindOfRequest) {
  const Response usual = answered(json + "{ \"\\/a\": \"1\" }\n");
  const Response none = answered("");
  const Response tooLong("", 1, -1, {});
  const Response empty("HTTP/1.1 400 Bad Request\n\n", 0, -1,
                       {"11 parent No parameter names in read request"});
  const std::string form = "application/x-www-form-urlencoded";
  const std::string multipart = "multipart/form-data; boundary=x";
  const std::string part =
      "--x\r\nContent-Disposition: form-data; name=\"read\"\r\n\r\n/a\r\n--x--\r\n";
  const struct {
    std::string type, body, rest;
    Response response;
  } rows[] = {
      {form, "read=/a", "METHOD=POST", usual},
      {form, "read=/a", "METHOD=POST QUERY_STRING=read=/b", usual},
      {multipart, part, "METHOD=POST", usual},
      {form, "read=/a", "METHOD=POST CGICC_MAX_CONTENTLENGTH=7", usual},
      {form, "read=/a", "METHOD=POST CGICC_MAX_CONTENTLENGTH=6", tooLong},
      {form, "read=/a", "METHOD=pUt CGICC_MAX_CONTENTLENGTH=x", tooLong},
      {form, "-", "METHOD=GET CGICC_MAX_CONTENTLENGTH=0 QUERY_STRING=read=/a", usual},
      {form, "read=/a", "METHOD=POST CONTENT_LENGTH=9", failed("I/O error")},
      {multipart, "--x\r\nno header\r\n--x--\r\n", "METHOD=POST", failed("Malformed input")},
      {form, "", "QUERY_STRING=read=", empty},
      {form, "", "QUERY_STRING=write=/a", none},
      {form, "", "QUERY_STRING=value=1&reads=/a", none},
      {form, "", "METHOD=GET", none},
  };
  for (const auto& [type, body, rest, response] : rows) {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    Strings environment{"CONTENT_TYPE=" + type};
    std::istringstream words(rest);
    for (std::string word; words >> word;) {
      environment.push_back((word[0] == 'M' ? "REQUEST_" : "") + word);
    }
    if (rest.find("CONTENT_LENGTH") == std::string::npos) {
      environment.push_back("CONTENT_LENGTH=" + std::to_string(body.size()));
    }
    EXPECT_EQ(respond(environment, body), response) << rest;
  }
}

TEST(Program, RefusesEveryRequestWithoutADaemon) {
  unlink(socketPath);
  for (const char* fields : {"read=/a", "read=", "write=/a&value=1", "write=/a%0A&value=1"}) {
    EXPECT_EQ(respond({query(fields)}), answered(serverError)) << fields;
  }
}

TEST(Program, WritesAParameterWithThoseThatDependOnIt) {
  Tree stored = tree("out:recorder/stream=1 mux1:bitrate=1");
  stored.merge(applianceTree());
  FakeDaemon daemon(answersFrom(stored, {{"put", "ok"}, {"save", "saved"}}));
  const Lines log{ipSetting,
                  broadcastSetting,
                  setting + "/configuration/outputs/recorder/stream to 2",
                  setting + "/configuration/outputs/ts/muxer/mux1/bitrate to 4466526",
                  "14 parent Reply from \"put\": ok\r\nok\r\nok\r\nok\r\n",
                  "14 child Reply from \"save\": saved\r\n",
                  applied};
  EXPECT_EQ(respond({writeIp}), Response(writtenIp(R"(ok\r\nok\r\nok\r\nok\r\n)"), 0, 0, log));
  Lines requests = readsOfAWrite(paths("net:subnet_mask net:broadcast_addr"));
  requests.insert(requests.end(),
                  {"put /configuration/network/broadcast_addr 10.0.0.255",
                   "put /configuration/network/ip_addr 10.0.0.5",
                   "put /configuration/outputs/recorder/stream 2",
                   "put /configuration/outputs/ts/muxer/mux1/bitrate 4466526", "apply", "save"});
  EXPECT_EQ(daemon.requests(), requests);
}

TEST(Program, SendsAnyValueAsOneWord) {
  const struct {
    const char *field, *sent, *echoed;
  } rows[] = {
      {"", R"("")", R"(\"\")"},
      {"a+b", R"("a b")", R"(\"a b\")"},
      {"a%0Db%0A", "\"a\rb\n\"", R"(\"a\rb\n\")"},
      {"%09", "\"\t\"", R"(\"\t\")"},
      {"%0B", "\"\v\"", "\\\"\v\\\""},
      {"%0C", "\"\f\"", R"(\"\f\")"},
      {"+x\"y", R"(" x"y")", R"(\" x\"y\")"},
      {"x\"y", R"(x"y)", R"(x\"y)"},
  };
  for (const auto& [field, sent, echoed] : rows) {
    FakeDaemon daemon(answersFrom(applianceTree()));
    const Response response = respond({query(std::string("write=/x&value=") + field)});
    EXPECT_EQ(std::get<0>(response), written(R"(\/x)", echoed, ""));
    std::string all;  // this daemon splits a line also at a quoted carriage return
    for (const std::string& line : daemon.requests()) all += line + '\r';
    EXPECT_NE(all.find(std::string("\rput /x ") + sent + "\rapply\rsave\r"), std::string::npos);
  }
}

TEST(Program, TriggersARuleByFixedStretchesOfTheName) {
  const char* const audio = "rtmp:aenc mux1:component2/encoder";
  const char* const single =
      "enc:venc1/input enc:venc2/input rtsp:aenc rtmp:aenc mux1:component2/encoder "
      "mux2:component2/encoder";
  const struct {
    const char *name, *value, *reads;
  } rows[] = {
      {"in:video/mode", "single_1", single},
      {"in:video/mode", "single12", single},
      {"in:video/mode", "double", ""},
      {"in:video/mode", "single+1", ""},  // quoted
      {"in:video/modes", "single_1", ""},
      {"enc:venc1/frame_ctrl/rate", "1", "enc:venc1/frame_ctrl/enable"},
      {"enc:vencX/frame_ctrl/rates", "1", "enc:vencX/frame_ctrl/enable"},
      {"enc:venc12/frame_ctrl/rate", "1", ""},
      {"enc:venc1", "1", ""},
      {"rtsp:aencoder", "1", audio},
      {"out:rtsp/streams/stream2/aenc", "1", audio},
      {"out:rtsp/streams/stream10/aenc", "1", ""},
      {"rtmp:aenc", "1", ""},
      {"net:subnet_mask", "255.255.255.0", "net:ip_addr net:broadcast_addr"},
  };
  for (const auto& [name, value, reads] : rows) {
    FakeDaemon daemon(answersFrom(applianceTree()));
    respond({query("write=" + paths(name)[0] + "&value=" + value)});
    Lines first = daemon.requests();
    Lines expected = paths(*reads != '\0' ? reads : "in:video/in1/logo/imagefile");  // or no rule
    for (std::string& path : expected) path.insert(0, "ls ");
    first.resize(expected.size());
    EXPECT_EQ(first, expected) << name << ' ' << value;
  }
}

TEST(Program, RefusesWhatItCannotWrite) {
  const std::string inName = "Line break in parameter name";
  const std::string inValue = "Line break and double quote in value";
  const std::pair<const char*, std::string> rows[] = {
      {"write=/a%0Aput+/b&value=1", inName},
      {"write=/a%0D&value=1", inName},
      {"write=/a&value=%0D\"", inValue},
      {"write=/a&value=\"x%0A", inValue},
      {"write=/configuration/encoders/venc&value=1", ""},
      {"write=/configuration/outputs/rtsp/streams/stream&value=1", ""},
      {"write=/configuration/inputs/video/mode&value=single", ""},
  };
  for (const auto& [fields, text] : rows) {
    FakeDaemon daemon(answersFrom({}));
    auto [output, exitStatus, detachedExitStatus, log] = respond({query(fields)});
    const std::string start = serverError + "Exception ";
    const std::string thrown = output.substr(std::min(start.size(), output.size()));
    if (text.empty()) {
      // The library's own text, behind the setting that was logged.
      EXPECT_EQ(log.front().find(setting), 0U) << fields;
      log.erase(log.begin());
    }
    EXPECT_EQ(Response(output, exitStatus, detachedExitStatus, log),
              failed(text.empty() ? thrown.substr(0, thrown.size() - 1) : text))
        << fields;
    EXPECT_EQ(daemon.requests(), Lines{}) << fields;
  }
}

TEST(Program, LetsGoOfTheWebServerBeforeItApplies) {
  std::promise<void> isAnswered;
  const Answers answers = answersFrom(applianceTree());
  FakeDaemon daemon([&](const std::string& line) {
    if (line == "apply") isAnswered.get_future().wait();
    return answers(line);
  });
  EXPECT_EQ(respond({query("write=/x&value=1")}, "", {}, [&] { isAnswered.set_value(); }),
            Response(written(R"(\/x)", "1", ""), 0, 0, {setting + "/x to 1", applied}));
}

TEST(Program, OutlivesADaemonThatGoesAwayInTheMiddle) {
  const Tree stored{{"/a", "1"}, {"/b", "2"}};
  const char* const outputs[] = {R"({ "invalid": [ "/a", "/b" ] })",
                                 R"({ "\/a": "1", "invalid": [ "/b" ] })",
                                 R"({ "\/a": "1", "\/b": "2" })"};
  for (const std::size_t gone : {1U, 2U, 3U}) {
    FakeDaemon daemon(goneAt(gone, answersFrom(stored)));
    EXPECT_EQ(respond({query("read=/a,/b")}), answered(json + outputs[gone - 1] + "\n"));
  }

  const std::size_t reads = readsOfAWrite({"mask", "broadcast"}).size();
  for (std::size_t gone = 1; gone <= reads + 5; ++gone) {
    FakeDaemon daemon(goneAt(gone, answersFrom(applianceTree(), {{"put", "ok"}, {"apply", "on"}})));
    Lines log{ipSetting};
    if (gone > 2) log.push_back(broadcastSetting);
    std::string output = writtenIp(R"(ok\r\nok\r\n)");
    if (gone <= reads + 1) {
      output = serverError + "\n";
    } else if (gone == reads + 2) {
      output = serverError + "ok\r\n\n";
      // What the first put answered stays, as no later command gets an answer.
      log.emplace_back("14 child Reply from \"apply\": ok\r\n");
      log.emplace_back("14 child Reply from \"save\": ok\r\n");
    } else {
      log.emplace_back("14 parent Reply from \"put\": ok\r\nok\r\n");
      if (gone > reads + 3) log.emplace_back("14 child Reply from \"apply\": on\r\n");
    }
    log.push_back(applied);
    EXPECT_EQ(respond({writeIp}), Response(output, 0, 0, log)) << gone;
  }
}
