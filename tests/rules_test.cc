#include <gtest/gtest.h>

#include "config_client/config_client.h"
#include "rules/fixed_settings.h"
#include "rules/mux_bitrate.h"
#include "rules/network_address.h"
#include "rules/single_input.h"
#include "rules/stream_audio.h"
#include "rules/video_encoder.h"
#include "tests/appliance.h"
#include "write_service/parameter_access.h"

using Rule = std::function<void(ConfigClient&, ChangeSet&)>;

template <class Function, class... Arguments>
static Rule with(Function rule, Arguments... arguments) {
  return [=](ConfigClient& client, ChangeSet& changes) { rule(client, changes, arguments...); };
}

struct Row {
  std::string stored, pending, after;  // beside the appliance's own, and in the change set
};

/// Runs the rule on what is stored and pending.
static void check(const Rule& rule, const Row& row) {
  Tree stored = tree(row.stored);
  stored.merge(applianceTree());
  FakeDaemon daemon(answersFrom(stored));
  ConfigClient client;
  ChangeSet changes = tree(row.pending);
  rule(client, changes);
  EXPECT_EQ(changes, tree(row.after)) << row.stored << "; pending " << row.pending;
}

TEST(Rules, RecordWhatDependsOnTheWrittenParameter) {
  const auto ip = [](const char* value) {
    return with(updateBroadcastAddress, paths("net:ip_addr")[0], value);
  };
  const auto mask = [](const char* value) {
    return with(updateBroadcastAddress, paths("net:subnet_mask")[0], value);
  };
  const auto rate = [](const char* name, const char* value) {
    return with(applyFrameRateRule, paths(name)[0], value);
  };
  const auto audio = [](const char* value) { return with(applyStreamAudioRule, value); };
  const auto input = [](const char* value) { return with(applySingleInputRule, value); };
  const std::pair<Rule, Row> rows[] = {
      {ip("192.168.1.77"), {"", "", ""}},
      {ip("10.1.2.3"), {"", "", "net:broadcast_addr=10.1.2.255"}},
      {ip("10.1.2.3"), {"net:subnet_mask=255.0.255.0", "", "net:broadcast_addr=10.255.2.255"}},
      {ip("10.1.2.3"), {"net:subnet_mask=0.0.0.0", "", "net:broadcast_addr=255.255.255.255"}},
      {ip("10.1.2.3"), {"net:subnet_mask=24", "", ""}},
      {ip("10.1.2.300"), {"", "", ""}},
      {ip("10.1.2"), {"", "", ""}},
      {ip(R"("10.1.2.3")"), {"", "", ""}},
      {ip("10.1.2.3"), {"net:broadcast_addr=10.1.02.255", "", "net:broadcast_addr=10.1.2.255"}},
      {mask("255.255.0.0"), {"", "", "net:broadcast_addr=192.168.255.255"}},
      {mask(R"("")"), {"", "", ""}},
      {rate("enc:venc1/frame_ctrl/rate", "1"), {"", "", "enc:venc1/frame_ctrl/enable=no"}},
      {rate("enc:venc2/frame_ctrl/rate", "01"), {"", "", ""}},
      {rate("enc:vencX/12345678901/x", ""), {"", "", "enc:vencX/12345678901enable=yes"}},
      {audio("1"), {"", "", ""}},
      {audio("2"), {"", "", "rtmp:aenc=2 mux1:component2/encoder=aenc2"}},
      {audio("off"), {"", "", "rtmp:aenc=off mux1:component2/encoder=off"}},
      {input("2"),
       {"enc:venc2/input=in2 rtsp:aenc=off mux2:component2/encoder=aenc3", "",
        "enc:venc1/input=in2 rtmp:aenc=2 mux1:component2/encoder=aenc2"}},
      {input("1"),
       {"enc:venc2/input=in2 rtsp:aenc=2 rtmp:aenc=2", "rtsp:aenc=x",
        "enc:venc2/input=in1 rtsp:aenc=1 rtmp:aenc=1 mux2:component2/encoder=aenc1"}},
      {input("3"),
       {"rtmp:aenc=2", "",
        "enc:venc1/input=in3 enc:venc2/input=in3 rtsp:aenc=3 mux1:component2/encoder=aenc3"}},
      {input(""),
       {"rtmp:aenc=2", "",
        "enc:venc1/input=in enc:venc2/input=in rtsp:aenc mux1:component2/encoder=aenc"}},
  };
  for (const auto& [rule, row] : rows) check(rule, row);
}

TEST(FixedSettings, AreRestoredWhenTheStoredValueDrifts) {
  Row all;
  for (const auto& [path, value] : fixedSettings()) {
    const std::string name = " all:" + path + '=';
    all.stored += name + 'x';
    all.after += name + value;
  }
  check(applyFixedSettings, all);
  check(applyFixedSettings, {"", "rtsp:venc=2", "rtsp:venc=2"});
  check(applyFixedSettings, {"rtsp:venc=x", "rtsp:venc=2", "rtsp:venc=1"});
}

TEST(VideoEncoder, SwitchesFollowTheRoutingAndTheCodecs) {
  const char* const copyOnly = "enc:venc1/frame_ctrl/auto=no enc:venc2/frame_ctrl/auto=no";
  const char* const neither =
      "enc:venc1/frame_ctrl/auto=no enc:venc2/frame_ctrl/auto=no "
      "enc:venc1/text_overlay/copy_image=no enc:venc2/text_overlay/copy_image=no";
  const char* const both =
      "enc:venc1/frame_ctrl/auto=yes enc:venc2/frame_ctrl/auto=yes "
      "enc:venc1/text_overlay/copy_image=yes enc:venc2/text_overlay/copy_image=yes";
  const Row rows[] = {
      {"", "", ""},
      {neither, "", both},
      {"enc:venc2/codec=mjpeg", "", copyOnly},
      {"enc:venc1/codec=H264", "", copyOnly},
      {"mux2:component1/encoder=venc1", "", neither},
      {"mux2:component1/encoder=venc22", "", neither},
      {"enc:venc2/codec=mjpeg", "enc:venc2/codec=h264", "enc:venc2/codec=h264"},
      {"", "enc:venc1/frame_ctrl/auto=no", "enc:venc1/frame_ctrl/auto=no"},
  };
  for (const Row& row : rows) check(applyVideoEncoderRules, row);
}

TEST(MuxBitrate, AddsUpWhatEachMultiplexerCarries) {
  const Row rows[] = {
      {"", "", ""},
      {"mux1:mode=vbr", "", "mux1:bitrate=3461333"},
      {"mux1:mode=VBR", "", ""},
      {"mux1:component3/encoder=aenc3", "", "mux1:bitrate=4658526"},
      {"mux1:component3/encoder=aenc30 enc:aenc30/aac/bitrate=1", "", "mux1:bitrate=4466528"},
      {"mux1:component2/encoder=aenc enc:aenc/bitrate=1", "", "mux1:bitrate=4210528"},
      {"mux1:component2/encoder=xaenc enc:xaenc/bitrate=1", "", "mux1:bitrate=4210526"},
      {"mux1:component3/encoder=xvenc enc:xvenc/codec=h264 enc:xvenc/h264/bitrate=999999", "", ""},
      {"mux1:component1/encoder=off", "", ""},
      {"mux1:component3/encoder=venc2", "", "mux1:bitrate=8677052"},
      {"mux1:component1/encoder=venc3 mux1:component3/encoder=venc1", "", ""},
      {"mux1:component3/encoder=venc3 mux1:bitrate=1", "", ""},  // the last has no H.264
      {"mux1:component1/encoder=off mux2:bitrate=1", "", "mux2:bitrate=3493333"},
      {"", "enc:aenc1/bitrate=0", "enc:aenc1/bitrate=0 mux1:bitrate=4210526"},
      {"", "mux1:mode=vbr", "mux1:mode=vbr mux1:bitrate=3461333"},
      {"mux1:bitrate=1", "enc:venc1/codec=mjpeg", "enc:venc1/codec=mjpeg"},
      {"", "mux1:component2/encoder=x", "mux1:component2/encoder=x mux1:bitrate=4210526"},
      {"", "mux1:bitrate=1", "mux1:bitrate=1"},
      {"mux1:bitrate=2", "mux1:bitrate=1", "mux1:bitrate=4466526"},
  };
  for (const Row& row : rows) check(applyMuxBitrateRule, row);
}

TEST(MuxBitrate, IsLimitedAndWrapsIn32Bits) {
  const struct {
    const char *mode, *video, *audio, *total;
  } rows[] = {
      {"cbr", "189999", "0", "200000"},           {"cbr", "190001", "0", "200001"},
      {"cbr", "47500000", "0", "50000000"},       {"cbr", "107374182", "0", "50000000"},
      {"cbr", "107374183", "0", "200000"},       // wraps below zero
      {"cbr", "214748365", "200000", "400000"},  // and all the way round
      {"cbr", "-5", "1073741824", "50000000"},   // the sum wraps up again
      {"vbr", "429496729", "0", "50000000"},      {"vbr", "429496730", "0", "200000"},
      {"vbr", "6000000", "2147483647", "200000"}, {"cbr", "+4000000kbit", "x1", "4210526"},
      {"vbr", "0300000", "0x10", "250000"},
  };
  for (const auto& [mode, video, audio, total] : rows) {
    check(applyMuxBitrateRule,
          {std::string("mux1:bitrate=1 mux1:mode=") + mode + " enc:venc1/h264/bitrate=" + video +
               " enc:aenc1/bitrate=" + audio,
           "", std::string("mux1:bitrate=") + total});
  }
}
