#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "cgi/reply.h"
#include "tests/program.h"

static const std::string setting = "14 parent Setting parameter ";

static std::string written(const std::string& name, const std::string& value,
                           const std::string& reply) {
  return json + R"({ "write": ")" + jsonEscape(name) + R"(", "value": ")" + jsonEscape(value) +
         R"(", "reply": ")" + jsonEscape(reply) + "\" }\n";
}

/// Writes `field`, which is to be put as `value`, and with it `others`, in the order of their
/// names. Returns the first line of the log.
static std::string checkWrite(const Tree& stored, const std::string& name, const std::string& field,
                              const std::string& value, Tree others = {}) {
  FakeDaemon daemon(answersFrom(stored));
  const auto [output, status, childStatus, log] =
      runProgram({{query("write=" + name + "&value=" + field)}});
  EXPECT_EQ(output, written(name, value, ""));
  others.emplace(name, value);
  std::string expected;
  for (const auto& [path, changed] : others) expected += "put " + path + ' ' + changed + '\n';
  const std::string requests = daemon.requests();
  EXPECT_EQ(requests.substr(std::min(requests.find("put "), requests.size())),
            expected + "apply\nsave\n");
  return log.at(0);
}

struct Row {
  std::string stored, write, others;  // the first besides the appliance's own
};

static void checkRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.stored + "; " + row.write);
    Tree stored = tree(row.stored);
    stored.merge(applianceTree());
    const auto [name, value] = *tree(row.write).begin();
    checkWrite(stored, name, value, value, tree(row.others));
  }
}

TEST(Write, SendsAnyValueAsOneWord) {
  const std::pair<const char*, const char*> rows[] = {
      {"", R"("")"},     {"a%0D", "\"a\r\""}, {"a%0Ab", "\"a\nb\""},  {"%09", "\"\t\""},
      {"%0B", "\"\v\""}, {"%0C", "\"\f\""},   {"+x\"y", R"(" x"y")"}, {"x\"y", R"(x"y)"},
  };
  for (const auto& [field, value] : rows) checkWrite(applianceTree(), "/x", field, value);
  const std::string mode = "/configuration/inputs/video/mode";
  // Triggers nothing, and is logged as it came.
  EXPECT_EQ(checkWrite(applianceTree(), mode, "single+2", R"("single 2")"),
            setting + mode + " to single 2");
}

TEST(Write, PutsWhatDependsOnTheWrittenParameter) {
  checkRows({
      {"net:subnet_mask=255.0.255.0", "net:ip_addr=10.1.2.3", "net:broadcast_addr=10.255.2.255"},
      {"net:broadcast_addr=10.1.02.255", "net:ip_addr=10.1.2.3", "net:broadcast_addr=10.1.2.255"},
      {"net:subnet_mask=24", "net:ip_addr=10.1.2.3", ""},
      {"", "net:ip_addr=10.1.2", ""},
      {"", "net:subnet_mask=255.255.0.0", "net:broadcast_addr=192.168.255.255"},
      {"net:broadcast_addr=10.9.9.9", "net:x=1", ""},
      {"", "venc1:frame_ctrl/rate=1", "venc1:frame_ctrl/enable=no"},
      {"", "enc:vencX/frame_ctrl/rates=2", "enc:vencX/frame_ctrl/enable=yes"},
      {"", "enc:venc12/frame_ctrl/rate=1", ""},
      {"", "enc:venc1=1", ""},
      {"", "out:rtsp/streams/stream2/aenc=2",
       "rtmp:aenc=2 mux1:component2/encoder=aenc2 mux1:bitrate=4338526"},
      {"", "out:rtsp/streams/stream10/aenc=2", ""},
      {"", "rtsp:aenc=off", "rtmp:aenc=off mux1:component2/encoder=off mux1:bitrate=4210526"},
      {"", "rtmp:aenc=2", ""},
      {"venc2:input=in2 rtsp:aenc=off mux2:component2/encoder=aenc3 mux2:bitrate=3525333",
       "in:video/mode=single_21",
       "venc1:input=in2 rtmp:aenc=2 mux1:component2/encoder=aenc2 mux1:bitrate=4338526"},
      {"venc2:input=in2 rtsp:aenc=2 rtmp:aenc=2", "in:video/mode=single11",
       "venc2:input=in1 rtsp:aenc=1 rtmp:aenc=1 mux2:component2/encoder=aenc1 "
       "mux2:bitrate=3557333"},
      {"rtmp:aenc=2", "in:video/mode=single_3",
       "venc1:input=in3 venc2:input=in3 rtsp:aenc=3 mux1:component2/encoder=aenc3 "
       "mux1:bitrate=4402526"},
      {"rtmp:aenc=2", "in:video/mode=single_",
       "venc1:input=in venc2:input=in rtsp:aenc mux1:component2/encoder=aenc "
       "mux1:bitrate=4210526"},
      {"", "in:video/modes=single_2", ""},
  });
}

TEST(Write, RestoresFixedSettingsThatHaveDrifted) {
  Tree drifted = applianceTree();
  for (const auto& [path, value] : fixedSettings()) drifted[path] = value + "x";
  checkWrite(drifted, "/x", "1", "1", fixedSettings());
  checkRows({{"", "rtsp:venc=2", ""}, {"rtsp:venc=x", "rtsp:venc=2", "rtsp:venc=1"}});
}

TEST(Write, SwitchesTheVideoEncodersByRoutingAndCodecs) {
  const char* const copyOnly = "venc1:frame_ctrl/auto=no venc2:frame_ctrl/auto=no";
  const char* const neither =
      "venc1:frame_ctrl/auto=no venc2:frame_ctrl/auto=no "
      "venc1:text_overlay/copy_image=no venc2:text_overlay/copy_image=no";
  checkRows({
      {"venc1:frame_ctrl/auto=no venc2:text_overlay/copy_image=no", "net:x=1",
       "venc1:frame_ctrl/auto=yes venc2:text_overlay/copy_image=yes"},
      {"", "venc1:codec=mjpeg", copyOnly},
      {"", "venc2:codec=mjpeg", copyOnly},
      {"venc1:codec=H264", "net:x=1", copyOnly},
      {"", "mux2:component1/encoder=venc1", neither},
  });
}

TEST(Write, AddsUpWhatEachMultiplexerCarriesIn32Bits) {
  checkRows({
      {"", "mux1:mode=vbr", "mux1:bitrate=3461333"},
      {"", "mux1:mode=VBR", ""},
      {"", "mux1:component3/encoder=aenc3", "mux1:bitrate=4658526"},
      {"enc:aenc30/aac/bitrate=1", "mux1:component3/encoder=aenc30", "mux1:bitrate=4466528"},
      {"enc:aenc/bitrate=1", "mux1:component2/encoder=aenc", "mux1:bitrate=4210528"},
      {"enc:xaenc/bitrate=1", "mux1:component2/encoder=xaenc", "mux1:bitrate=4210526"},
      {"", "mux1:component3/encoder=venc2", "mux1:bitrate=8677052"},
      {"mux1:component1/encoder=venc3 enc:venc3/h264/bitrate=999 mux1:bitrate=1",
       "mux1:component3/encoder=venc1", "mux1:bitrate=4466526"},
      {"mux1:bitrate=1", "mux1:component3/encoder=venc3", ""},  // the last has no H.264
      {"mux1:component1/encoder=off mux2:bitrate=1", "net:x=1", "mux2:bitrate=3493333"},
      {"mux1:component1/encoder=venc3 enc:venc3/codec=mjpeg mux1:bitrate=1", "enc:venc3/codec=h264",
       "mux1:bitrate=256000"},
      {"", "mux1:bitrate=1", ""},
      {"mux1:bitrate=2", "mux1:bitrate=1", "mux1:bitrate=4466526"},
      // The sum has limits.
      {"venc1:h264/bitrate=189999", "enc:aenc1/bitrate=0", "mux1:bitrate=200000"},
      {"venc1:h264/bitrate=190001", "enc:aenc1/bitrate=0", "mux1:bitrate=200001"},
      // Wraps below zero, all the way round, and the sum up again.
      {"venc1:h264/bitrate=107374183", "enc:aenc1/bitrate=0", "mux1:bitrate=200000"},
      {"venc1:h264/bitrate=214748365", "enc:aenc1/bitrate=200000", "mux1:bitrate=400000"},
      {"venc1:h264/bitrate=-5", "enc:aenc1/bitrate=1073741824", "mux1:bitrate=50000000"},
      {"mux1:mode=vbr venc1:h264/bitrate=429496730", "enc:aenc1/bitrate=0", "mux1:bitrate=200000"},
      {"mux1:bitrate=1 venc1:h264/bitrate=+4000000kbit", "enc:aenc1/bitrate=x1",
       "mux1:bitrate=4210526"},
      {"mux1:mode=vbr venc1:h264/bitrate=0300000", "enc:aenc1/bitrate=0x10", "mux1:bitrate=250000"},
  });
}

TEST(Write, RefusesWhatItCannotPut) {
  const std::pair<const char*, std::string> rows[] = {
      {"write=/a%0Aput+/b&value=1", "Line break in parameter name"},
      {"write=/a%0D&value=1", "Line break in parameter name"},
      {"write=/a&value=%0D\"", "Line break and double quote in value"},
      {"write=/a&value=\"x%0A", "Line break and double quote in value"},
      {"write=/configuration/encoders/venc&value=1", "basic_string"},  // and more, by the library
      {"write=/configuration/inputs/video/mode&value=single", "basic_string"},
  };
  for (const auto& [fields, text] : rows) {
    FakeDaemon daemon(answersFrom({}));
    const auto [output, status, childStatus, log] = runProgram({{query(fields)}});
    const std::string thrown = log.back().substr(std::string("11 parent Caught exception ").size());
    EXPECT_EQ(thrown.substr(0, text.size()), text) << fields;
    EXPECT_EQ(output, serverError + "Exception " + thrown + "\n") << fields;
    EXPECT_EQ(daemon.requests(), "") << fields;
  }
}

TEST(Write, OutlivesADaemonThatGoesAwayAndAppliesWithoutTheWebServer) {
  Strings requests = paths(
      "net:subnet_mask net:broadcast_addr in:video/in1/logo/imagefile "
      "in:video/in2/logo/imagefile in:audio/analog_in1/input in:audio/analog_in1/micboost "
      "enc:aenc3/codec in:video/in1/deinterlacer/mode rtsp:venc rtmp:venc out:recorder/stream "
      "out:recorder/enable mux1:mode mux1:component1/encoder venc1:codec venc1:h264/bitrate "
      "mux1:component2/encoder enc:aenc1/bitrate mux1:component3/encoder mux1:bitrate mux2:mode "
      "mux2:component1/encoder venc2:codec venc2:h264/bitrate mux2:component2/encoder "
      "enc:aenc2/bitrate mux2:component3/encoder enc:aenc3/aac/bitrate mux2:bitrate "
      "mux2:component1/encoder venc1:codec venc2:codec venc1:frame_ctrl/auto "
      "venc1:text_overlay/copy_image venc2:frame_ctrl/auto venc2:text_overlay/copy_image");
  for (std::string& path : requests) path = "ls " + path + "\n";
  const std::string ip = "/configuration/network/ip_addr";
  const std::string broadcast = "/configuration/network/broadcast_addr";
  const std::string put = "14 parent Reply from \"put\": ok\r\nok\r\n";
  const std::string apply = "14 child Reply from \"apply\": ";
  const std::string save = "14 child Reply from \"save\": ";
  const std::string stored = written(ip, "10.0.0.5", "ok\r\nok\r\n");
  // Where the daemon goes away at a read or the first put, at each later request, or not at all:
  // the output, and the log after the settings and before the last line. After a failed put nobody
  // answers later commands, and the answer to the put before it stays.
  const std::pair<std::string, Strings> outcomes[] = {
      {serverError + "\n", {}},
      {serverError + "ok\r\n\n", {apply + "ok\r\n", save + "ok\r\n"}},
      {stored, {put}},
      {stored, {put, apply + "on\r\n"}},
      {stored, {put, apply + "on\r\n", save + "saved\r\n"}}};
  const std::size_t first = requests.size();
  requests.insert(requests.end(), {"put " + broadcast + " 10.0.0.255\n",
                                   "put " + ip + " 10.0.0.5\n", "apply\n", "save\n", ""});
  std::string expected;
  for (std::size_t count = 0; count < requests.size() && !HasFailure(); ++count) {
    SCOPED_TRACE(count);
    std::promise<void> isAnswered;
    std::size_t left = 1 + count;  // with the greeting
    FakeDaemon daemon([&](const std::string& line) {
      static const Answers answers =
          answersFrom(applianceTree(), {{"put", "ok"}, {"apply", "on"}, {"save", "saved"}});
      if (line == "apply") isAnswered.get_future().wait();
      return left-- > 0 ? answers(line) : "";
    });
    Request request{{query("write=" + ip + "&value=10.0.0.5")}};
    request.whenAnswered = [&] { isAnswered.set_value(); };
    const auto& [output, replies] = outcomes[std::max(count, first) - first];
    Strings log{setting + ip + " to 10.0.0.5"};
    if (count > 1) log.push_back(setting + broadcast + " to 10.0.0.255");
    log.insert(log.end(), replies.begin(), replies.end());
    log.emplace_back("14 child Applied and saved the parameter settings");
    EXPECT_EQ(runProgram(request), Response(output, 0, 0, log));
    expected += requests[count];
    EXPECT_EQ(daemon.requests(), expected);
  }
}

TEST(Write, AppliesAndSavesWhateverTheSystemRefuses) {
  const std::string reply = written("/x", "1", "ok\r\n");
  const struct {
    Strings before;
    std::string output, thirdInLog;
  } rows[] = {
      {withoutInput, reply, "Applied"},
      {{"sh", "-c", R"("$0" "$@" <&- >&- 2>&-; true)"}, "", "Applied"},
      {{"bash", "--norc", "-c", R"(exec 3> >(:); wait $!; "$0" "$@" >&3)"}, "", "Applied"},
      {strace(forkFails), reply, "12 ? Failed to fork child process, continuing in parent process"},
      {strace("openat,open:error=EMFILE", {"-P/dev/null"}), reply, "Applied"},
  };
  for (const auto& row : rows) {
    if (row.before[0] == "strace" && isEmulated) continue;
    FakeDaemon daemon(answersFrom(applianceTree(), {{"put", "ok"}}));
    const auto [output, status, childStatus, log] =
        runProgram({{query("write=/x&value=1")}, "", row.before});
    EXPECT_EQ(output, row.output) << row.before.back();
    EXPECT_EQ(status, 0) << row.before.back();
    EXPECT_NE(log.at(2).find(row.thirdInLog), std::string::npos) << log.at(2);
    EXPECT_NE(daemon.requests().find("\nsave\n"), std::string::npos);
  }
}

TEST(Write, EndsWithoutANullDeviceForAClosedStream) {
  if (isEmulated) return;
  const std::string text = "Cannot open /dev/null: No such file or directory";
  for (const char* const closed : {"<&-", ">&-", "2>&-"}) {
    const Strings shell{"-P/dev/null", "/bin/sh", "-c", std::string(R"(exec "$0" "$@" )") + closed};
    const Strings before = strace("openat,open:error=ENOENT", shell);
    const std::string output = *closed == '>' ? "" : serverError + "Exception " + text + "\n";
    EXPECT_EQ(runProgram({{query("write=/x&value=1")}, "", before}),
              Response(output, 0, noProcess, {"11 ? Caught exception " + text}))
        << closed;
  }
}
