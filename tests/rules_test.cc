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
  Rule rule;
  const char *stored, *pending, *after;  // beside the appliance's own, and in the change set
};

/// Runs the rule, and returns what it read.
static Lines check(const Row& row, std::size_t gone = std::string::npos) {
  Tree stored = tree(row.stored);
  stored.merge(applianceTree());
  FakeDaemon daemon(goneAt(gone, answersFrom(stored)));
  ChangeSet changes = tree(row.pending);
  {
    ConfigClient client;
    row.rule(client, changes);
  }
  EXPECT_EQ(changes, tree(row.after)) << row.stored << "; pending " << row.pending << "; " << gone;
  Lines reads;
  for (const std::string& line : daemon.requests()) {
    EXPECT_EQ(line.substr(0, 3), "ls ");  // a rule never writes
    reads.push_back(line.substr(3));
  }
  return reads;
}

TEST(ParameterAccess, PrefersThePendingValueToReadAndTheStoredOneToRecord) {
  const std::string path = "/configuration/network/ip_addr";  // 192.168.1.10
  const auto set = [path](const char* value, const char* expected) {
    return with(setIfChanged, path, value, expected);
  };
  const Row rows[] = {
      {set("192.168.1.10", ""), "", "", ""},
      {set("b", ""), "", "", "net:ip_addr=b"},
      {set("192.168.1.10", ""), "", "net:ip_addr=p", "net:ip_addr=p"},
      {set("b", ""), "", "net:ip_addr=p", "net:ip_addr=b"},
      {set("b", "192.168.1.10"), "", "", "net:ip_addr=b"},
      {set("192.168.1.10", "192.168.1.10"), "", "", "net:ip_addr=192.168.1.10"},
      {set("b", "p"), "", "net:ip_addr=p", "net:ip_addr=p"},
  };
  for (const Row& row : rows) EXPECT_EQ(check(row), Lines{path});
  const Rule reads = [&](ConfigClient& client, ChangeSet& changes) {
    std::string value = "old";
    EXPECT_TRUE(getEffectiveValue(client, changes, paths("net:x")[0], value) && value.empty());
    EXPECT_TRUE(getEffectiveValue(client, changes, path, value) && value == "192.168.1.10");
    EXPECT_FALSE(getEffectiveValue(client, changes, path + "x", value));
    EXPECT_FALSE(setIfChanged(client, changes, path, "b", ""));
  };
  check({reads, "", "net:x", "net:x"}, 2);
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
  const Row rows[] = {
      {ip("192.168.1.77"), "", "", ""},
      {ip("10.1.2.3"), "", "", "net:broadcast_addr=10.1.2.255"},
      {ip("10.1.2.3"), "net:subnet_mask=255.0.255.0", "", "net:broadcast_addr=10.255.2.255"},
      {ip("10.1.2.3"), "net:subnet_mask=0.0.0.0", "", "net:broadcast_addr=255.255.255.255"},
      {ip("10.1.2.3"), "net:subnet_mask=255.255.255.255", "", "net:broadcast_addr=10.1.2.3"},
      {ip("10.1.2.3"), "net:subnet_mask=24", "", ""},
      {ip("10.1.2.300"), "", "", ""},
      {ip(R"("10.1.2.3 ")"), "", "", ""},
      {ip(R"("")"), "", "", ""},
      {ip("10.1.2.3"), "net:broadcast_addr=10.1.02.255", "", "net:broadcast_addr=10.1.2.255"},
      {mask("255.255.0.0"), "", "", "net:broadcast_addr=192.168.255.255"},
      {mask(R"("")"), "", "", ""},
      {rate("enc:venc1/frame_ctrl/rate", "1"), "", "", "enc:venc1/frame_ctrl/enable=no"},
      {rate("enc:venc2/frame_ctrl/rate", "01"), "", "", ""},
      {rate("enc:vencX/frame_ctrl/rates/x", ""), "", "", "enc:vencX/frame_ctrl/enable=yes"},
      {audio("1"), "", "", ""},
      {audio("2"), "", "", "rtmp:aenc=2 mux1:component2/encoder=aenc2"},
      {audio("off"), "", "", "rtmp:aenc=off mux1:component2/encoder=off"},
      {input("2"), "rtmp:aenc=off mux2:component2/encoder=aenc3", "",
       "enc:venc1/input=in2 enc:venc2/input=in2 rtsp:aenc=2 mux1:component2/encoder=aenc2"},
      {input("1"), "enc:venc2/input=in2 rtsp:aenc=2 rtmp:aenc=2", "rtsp:aenc=x",
       "enc:venc2/input=in1 rtsp:aenc=1 rtmp:aenc=1 mux2:component2/encoder=aenc1"},
      {input("3"), "rtmp:aenc=2", "",
       "enc:venc1/input=in3 enc:venc2/input=in3 rtsp:aenc=3 mux1:component2/encoder=aenc3"},
      {input(""), "rtmp:aenc=2", "",
       "enc:venc1/input=in enc:venc2/input=in rtsp:aenc mux1:component2/encoder=aenc"},
  };
  for (const Row& row : rows) check(row);
  for (const std::size_t gone : {1U, 2U}) check({ip("10.1.2.3"), "", "", ""}, gone);
}

TEST(FixedSettings, AreRestoredWhenTheStoredValueDrifts) {
  EXPECT_EQ(check({applyFixedSettings, "", "", ""}), fixedSettingsReads());
  for (const std::string& path : fixedSettingsReads()) {
    const std::string drifted = "all:" + path;
    const std::string restored = drifted + '=' + applianceTree()[path];
    check({applyFixedSettings, drifted.c_str(), "", restored.c_str()});
  }
  const char* const enabled = "out:recorder/enable=yes";
  check({applyFixedSettings, "", "out:recorder/enable=no", "out:recorder/enable=no"});
  check({applyFixedSettings, "out:recorder/enable=x", "out:recorder/enable=no", enabled});
}

TEST(VideoEncoder, SwitchesFollowTheRoutingAndTheCodecs) {
  const Rule rule = applyVideoEncoderRules;
  const char* const copyOnly = "enc:venc1/frame_ctrl/auto=no enc:venc2/frame_ctrl/auto=no";
  const char* const neither =
      "enc:venc1/frame_ctrl/auto=no enc:venc2/frame_ctrl/auto=no "
      "enc:venc1/text_overlay/copy_image=no enc:venc2/text_overlay/copy_image=no";
  EXPECT_EQ(check({rule, "", "", ""}), videoEncoderReads());
  const Row rows[] = {
      {rule, neither, "",
       "enc:venc1/frame_ctrl/auto=yes enc:venc2/frame_ctrl/auto=yes "
       "enc:venc1/text_overlay/copy_image=yes enc:venc2/text_overlay/copy_image=yes"},
      {rule, "enc:venc2/codec=mjpeg", "", copyOnly},
      {rule, "enc:venc1/codec=H264", "", copyOnly},
      {rule, "mux2:component1/encoder=venc1", "", neither},
      {rule, "mux2:component1/encoder=venc22", "", neither},
      {rule, "enc:venc2/codec=mjpeg", "enc:venc2/codec=h264", "enc:venc2/codec=h264"},
      {rule, "", "enc:venc1/frame_ctrl/auto=no", "enc:venc1/frame_ctrl/auto=no"},
  };
  for (const Row& row : rows) check(row);
  for (const std::size_t gone : {1U, 2U, 3U, 4U}) check({rule, neither, "", ""}, gone);
}

TEST(MuxBitrate, AddsUpWhatEachMultiplexerCarries) {
  const Rule rule = applyMuxBitrateRule;
  EXPECT_EQ(check({rule, "", "", ""}), muxBitrateReads());
  const Row rows[] = {
      {rule, "mux1:mode=vbr", "", "mux1:bitrate=3461333"},
      {rule, "mux1:mode=VBR", "", ""},
      {rule, "mux1:component3/encoder=aenc3", "", "mux1:bitrate=4658526"},
      {rule, "mux1:component3/encoder=aenc30 enc:aenc30/aac/bitrate=1", "", "mux1:bitrate=4466528"},
      {rule, "mux1:component2/encoder=aenc enc:aenc/bitrate=1", "", "mux1:bitrate=4210528"},
      {rule, "mux1:component1/encoder=off", "", ""},
      {rule, "mux1:component1/encoder=Venc1", "", ""},
      {rule, "mux1:component3/encoder=venc2", "", "mux1:bitrate=8677052"},
      {rule, "mux1:component1/encoder=venc3 mux1:component3/encoder=venc1 mux1:bitrate=1", "",
       "mux1:bitrate=4466526"},
      {rule, "mux1:component3/encoder=venc3 mux1:bitrate=1", "", ""},  // the last has no H.264
      {rule, "mux1:component1/encoder=off mux2:bitrate=1", "", "mux2:bitrate=3493333"},
      {rule, "", "enc:aenc1/bitrate=0", "enc:aenc1/bitrate=0 mux1:bitrate=4210526"},
      {rule, "", "mux1:bitrate=1", "mux1:bitrate=1"},
      {rule, "mux1:bitrate=2", "mux1:bitrate=1", "mux1:bitrate=4466526"},
  };
  for (const Row& row : rows) check(row);
  // What is recorded for multiplexer 1 stays when a read for multiplexer 2 fails.
  for (std::size_t gone = 1; gone <= muxBitrateReads().size(); ++gone) {
    check({rule, "mux1:bitrate=1", "", gone <= 8 ? "" : "mux1:bitrate=4466526"}, gone);
  }
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
  };
  for (const auto& [mode, video, audio, total] : rows) {
    const std::string stored = std::string("mux1:bitrate=1 mux1:mode=") + mode +
                               " enc:venc1/h264/bitrate=" + video + " enc:aenc1/bitrate=" + audio;
    check(
        {applyMuxBitrateRule, stored.c_str(), "", (std::string("mux1:bitrate=") + total).c_str()});
  }
}
