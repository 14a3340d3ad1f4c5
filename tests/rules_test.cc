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

static const std::string network = "/configuration/network/";
static const std::string encoders = "/configuration/encoders/";
static const std::string outputs = "/configuration/outputs/";
static const std::string mux1 = outputs + "ts/muxer/mux1";
static const std::string mux2 = outputs + "ts/muxer/mux2";

struct Outcome {
  Lines reads;
  ChangeSet changes;
};

/// Runs `rule` on the appliance with `stored` in place of some of its values.
static Outcome run(const Rule& rule, const Tree& stored, ChangeSet changes = {},
                   std::size_t gone = std::string::npos) {
  Tree tree = stored;
  tree.merge(applianceTree());
  FakeDaemon daemon(goneAt(gone, answersFrom(tree)));
  {
    ConfigClient client;
    rule(client, changes);
  }
  Lines reads;
  for (const std::string& line : daemon.requests()) {
    EXPECT_EQ(line.substr(0, 3), "ls ");  // a rule never writes
    reads.push_back(line.substr(3));
  }
  return {reads, changes};
}

TEST(ParameterAccess, PrefersThePendingValueToReadAndTheStoredOneToRecord) {
  const std::string path = network + "ip_addr";  // 192.168.1.10
  const struct {
    ChangeSet pending;
    const char *newValue, *expected, *recorded;
  } rows[] = {
      {{}, "192.168.1.10", "", nullptr},
      {{}, "other", "", "other"},
      {{{path, "pending"}}, "192.168.1.10", "", "pending"},
      {{{path, "pending"}}, "other", "", "other"},
      {{}, "other", "192.168.1.10", "other"},
      {{}, "192.168.1.10", "192.168.1.10", "192.168.1.10"},
      {{{path, "pending"}}, "other", "pending", "pending"},
      {{}, "other", "192.168.1.1", nullptr},
  };
  for (const auto& [pending, newValue, expected, recorded] : rows) {
    const Outcome outcome = run(
        [&](ConfigClient& client, ChangeSet& changes) {
          EXPECT_TRUE(setIfChanged(client, changes, path, newValue, expected));
        },
        {}, pending);
    EXPECT_EQ(outcome.changes, recorded ? ChangeSet({{path, recorded}}) : ChangeSet{}) << newValue;
    EXPECT_EQ(outcome.reads, Lines{path}) << newValue;
  }

  const Rule reads = [&](ConfigClient& client, ChangeSet& changes) {
    std::string value = "old";
    EXPECT_TRUE(getEffectiveValue(client, changes, "/pending", value));
    EXPECT_EQ(value, "");
    EXPECT_TRUE(getEffectiveValue(client, changes, path, value));
    EXPECT_EQ(value, "192.168.1.10");
    EXPECT_FALSE(getEffectiveValue(client, changes, path + "x", value));
    EXPECT_FALSE(setIfChanged(client, changes, path, "other", ""));
  };
  const ChangeSet pending{{"/pending", ""}};
  EXPECT_EQ(run(reads, {}, pending, 2).changes, pending);
}

TEST(FixedSettings, RestoresEachDriftedSetting) {
  EXPECT_EQ(run(applyFixedSettings, {}).changes, ChangeSet{});
  for (const std::string& path : fixedSettingsReads()) {
    const Outcome outcome = run(applyFixedSettings, {{path, "drifted"}});
    EXPECT_EQ(outcome.reads, fixedSettingsReads());
    EXPECT_EQ(outcome.changes, (ChangeSet{{path, applianceTree()[path]}}));
  }
}

TEST(FixedSettings, GoByTheStoredValueOfAPendingOne) {
  const std::string path = outputs + "recorder/enable";
  const ChangeSet pending{{path, "no"}};
  EXPECT_EQ(run(applyFixedSettings, {}, pending).changes, pending);
  EXPECT_EQ(run(applyFixedSettings, {{path, "no"}}, pending).changes, (ChangeSet{{path, "yes"}}));
}

TEST(NetworkAddress, FollowsFromAddressAndMask) {
  const std::string ip = network + "ip_addr";
  const std::string mask = network + "subnet_mask";
  const std::string broadcast = network + "broadcast_addr";
  const struct {
    const std::string &name, value, stored;
    const char* recorded;
  } rows[] = {
      {ip, "192.168.1.77", "255.255.255.0", nullptr},  // as stored
      {ip, "10.1.2.3", "255.255.255.0", "10.1.2.255"},
      {ip, "10.1.2.3", "255.0.255.0", "10.255.2.255"},
      {ip, "10.1.2.3", "0.0.0.0", "255.255.255.255"},
      {ip, "10.1.2.3", "255.255.255.255", "10.1.2.3"},
      {mask, "255.255.0.0", "10.1.2.3", "10.1.255.255"},
      {mask, "255.255.255.128", "10.1.2.200", "10.1.2.255"},
      {ip, "10.1.2.3", "24", nullptr},
      {ip, "10.1.2.300", "255.255.255.0", nullptr},
      {ip, "\"10.1.2.3 \"", "255.255.255.0", nullptr},
      {ip, "\"\"", "255.255.255.0", nullptr},
      {mask, "\"\"", "10.1.2.3", nullptr},
  };
  for (const auto& [name, value, stored, recorded] : rows) {
    const std::string& other = name == ip ? mask : ip;
    const Outcome outcome = run(
        [name = name, value = value](ConfigClient& client, ChangeSet& changes) {
          updateBroadcastAddress(client, changes, name, value);
        },
        {{other, stored}});
    EXPECT_EQ(outcome.changes, recorded ? ChangeSet({{broadcast, recorded}}) : ChangeSet{})
        << value << ' ' << stored;
    EXPECT_EQ(outcome.reads[0], other) << value << ' ' << stored;
  }
  const Rule rule = [&](ConfigClient& client, ChangeSet& changes) {
    updateBroadcastAddress(client, changes, ip, "192.168.1.10");
  };
  EXPECT_EQ(run(rule, {{broadcast, "192.168.001.255"}}).changes,
            (ChangeSet{{broadcast, "192.168.1.255"}}));
  EXPECT_EQ(run(rule, {{broadcast, "?"}}, {}, 1).changes, ChangeSet{});
  EXPECT_EQ(run(rule, {}).reads, (Lines{mask, broadcast}));
}

TEST(VideoEncoder, SwitchesFollowTheRoutingAndTheCodecs) {
  const struct {
    const char *source, *codec1, *codec2, *automatic, *copyImage;
  } rows[] = {
      {"venc2", "h264", "h264", "yes", "yes"},
      {"venc2", "h264", "mjpeg", "no", "yes"},
      {"venc2", "h265", "h264", "no", "yes"},
      {"venc2", "H264", "h264", "no", "yes"},
      {"venc1", "h264", "h264", "no", "no"},
      {"No such file or directory", "h264", "h264", "no", "no"},
  };
  const auto switches = [](const std::string& automatic, const std::string& copyImage) {
    return Tree{{encoders + "venc1/frame_ctrl/auto", automatic},
                {encoders + "venc1/text_overlay/copy_image", copyImage},
                {encoders + "venc2/frame_ctrl/auto", automatic},
                {encoders + "venc2/text_overlay/copy_image", copyImage}};
  };
  for (const auto& [source, codec1, codec2, automatic, copyImage] : rows) {
    Tree stored = switches("?", "?");
    stored.insert({{mux2 + "/component1/encoder", source},
                   {encoders + "venc1/codec", codec1},
                   {encoders + "venc2/codec", codec2}});
    const Outcome outcome = run(applyVideoEncoderRules, stored);
    EXPECT_EQ(outcome.changes, switches(automatic, copyImage)) << source << codec1 << codec2;
    EXPECT_EQ(outcome.reads, videoEncoderReads());
  }
  const ChangeSet pending{{encoders + "venc2/codec", "h264"}};
  EXPECT_EQ(run(applyVideoEncoderRules, {{encoders + "venc2/codec", "mjpeg"}}, pending).changes,
            pending);
  for (const std::size_t gone : {1, 2, 3}) {
    EXPECT_EQ(run(applyVideoEncoderRules, switches("?", "?"), {}, gone).changes, ChangeSet{});
  }
}

TEST(VideoEncoder, FrameControlFollowsTheWrittenRate) {
  const struct {
    const char *written, *value, *encoder, *enable;
  } rows[] = {
      {"venc1/frame_ctrl/rate", "1", "venc1", "no"},
      {"venc2/frame_ctrl/rate", "01", "venc2", "yes"},
      {"venc2/frame_ctrl/rate", "\"\"", "venc2", "yes"},
      {"vencX/frame_ctrl/rates/and/more", "25", "vencX", "yes"},
  };
  for (const auto& [written, value, encoder, enable] : rows) {
    const std::string target = encoders + encoder + "/frame_ctrl/enable";
    const Outcome outcome = run(
        [written = written, value = value](ConfigClient& client, ChangeSet& changes) {
          applyFrameRateRule(client, changes, encoders + written, value);
        },
        {{target, "?"}});
    EXPECT_EQ(outcome.changes, (ChangeSet{{target, enable}})) << written;
    EXPECT_EQ(outcome.reads, Lines{target});
  }
}

TEST(StreamAudio, GoesToRtmpAndToMultiplexer1) {
  const std::string rtmp = outputs + "rtmp/streams/stream1/aenc";
  const std::string component = mux1 + "/component2/encoder";
  const std::pair<const char*, ChangeSet> rows[] = {
      {"1", {}},
      {"2", {{rtmp, "2"}, {component, "aenc2"}}},
      {"off", {{rtmp, "off"}, {component, "off"}}},
      {"\"\"", {{rtmp, "\"\""}, {component, "aenc\"\""}}},
  };
  for (const auto& [value, recorded] : rows) {
    const Outcome outcome =
        run([value = value](ConfigClient& client,
                            ChangeSet& changes) { applyStreamAudioRule(client, changes, value); },
            {});
    EXPECT_EQ(outcome.changes, recorded) << value;
    EXPECT_EQ(outcome.reads, (Lines{rtmp, component})) << value;
  }
}

TEST(SingleInput, MovesWhatPointsToTheOtherInput) {
  const Lines paths{encoders + "venc1/input",
                    encoders + "venc2/input",
                    outputs + "rtsp/streams/stream1/aenc",
                    outputs + "rtmp/streams/stream1/aenc",
                    mux1 + "/component2/encoder",
                    mux2 + "/component2/encoder"};
  const struct {
    const char* input;
    Lines stored, recorded;  // for each of the paths; "-" is nothing
  } rows[] = {
      {"2", {"in1", "in1", "1", "off", "aenc1", "aenc3"}, {"in2", "in2", "2", "-", "aenc2", "-"}},
      {"2", {"in2", "in1", "2", "2", "aenc2", "aenc2"}, {"-", "in2", "-", "-", "-", "-"}},
      {"1", {"in2", "in2", "2", "2", "aenc2", "aenc2"}, {"in1", "in1", "1", "1", "aenc1", "aenc1"}},
      {"3", {"in1", "in2", "1", "2", "aenc1", "off"}, {"in3", "in3", "3", "-", "aenc3", "-"}},
      {"", {"in1", "in2", "1", "2", "aenc1", "off"}, {"in", "in", "", "-", "aenc", "-"}},
  };
  for (const auto& row : rows) {
    Tree stored;
    ChangeSet recorded;
    for (std::size_t i = 0; i < paths.size(); ++i) {
      stored[paths[i]] = row.stored[i];
      if (row.recorded[i] != "-") recorded[paths[i]] = row.recorded[i];
    }
    const Outcome outcome =
        run([&row](ConfigClient& client,
                   ChangeSet& changes) { applySingleInputRule(client, changes, row.input); },
            stored);
    EXPECT_EQ(outcome.changes, recorded) << row.input;
    EXPECT_EQ(outcome.reads, paths) << row.input;
  }
}

TEST(MuxBitrate, AddsUpWhatEachMultiplexerCarries) {
  const std::string video = encoders + "venc1/h264/bitrate";
  const std::string audio = encoders + "aenc1/bitrate";
  const std::string second = encoders + "venc2/codec";
  const std::string component[] = {mux1 + "/component1/encoder", mux1 + "/component2/encoder",
                                   mux1 + "/component3/encoder"};
  const std::string mode = mux1 + "/mode";
  const struct {
    Tree stored;
    const char* total;  // of multiplexer 1
  } rows[] = {
      {{}, nullptr},
      {{{mode, "vbr"}}, "3461333"},
      {{{mode, "VBR"}}, nullptr},
      {{{component[2], "aenc3"}}, "4658526"},
      {{{component[2], "aenc30"}, {encoders + "aenc30/aac/bitrate", "1"}}, "4466528"},
      {{{component[1], "aenc"}, {encoders + "aenc/bitrate", "1"}}, "4210528"},
      {{{component[0], "off"}}, nullptr},
      {{{component[0], "Venc1"}}, nullptr},
      {{{component[2], "venc2"}}, "8677052"},
      {{{component[2], "venc2"}, {second, "mjpeg"}}, nullptr},
      {{{component[0], "venc2"}, {second, "mjpeg"}, {component[2], "venc1"}}, nullptr},
      {{{video, "150000"}, {audio, "0"}}, "200000"},
      {{{video, "189999"}, {audio, "0"}}, "200000"},  // 199998.9...
      {{{video, "190001"}, {audio, "0"}}, "200001"},
      {{{video, "47500000"}, {audio, "0"}}, "50000000"},
      {{{video, "47500001"}, {audio, "0"}}, "50000000"},
      {{{video, "107374182"}, {audio, "0"}}, "50000000"},     // the last that does not wrap
      {{{video, "107374183"}, {audio, "0"}}, "200000"},       // below zero
      {{{video, "214748365"}, {audio, "200000"}}, "400000"},  // back at 4 / 19
      {{{video, "-5"}, {audio, "1073741824"}}, "50000000"},   // wraps down, then up
      {{{video, "4000000"}, {audio, "2147483647"}}, "4210524"},
      {{{mode, "vbr"}, {video, "429496729"}, {audio, "0"}}, "50000000"},
      {{{mode, "vbr"}, {video, "429496730"}, {audio, "0"}}, "200000"},
      {{{mode, "vbr"}, {video, "6000000"}, {audio, "2147483647"}}, "200000"},  // the sum wraps
      {{{video, " +4000000 bit/s"}, {audio, "x1"}}, "4210526"},
  };
  int number = 0;
  for (const auto& [stored, total] : rows) {
    const Outcome outcome = run(applyMuxBitrateRule, stored);
    ChangeSet recorded;
    if (total) recorded[mux1 + "/bitrate"] = total;
    ChangeSet changes = outcome.changes;
    changes.erase(mux2 + "/bitrate");
    EXPECT_EQ(changes, recorded) << "row " << number;
    ++number;
  }
  EXPECT_EQ(run(applyMuxBitrateRule, {}).reads, muxBitrateReads());
}

TEST(MuxBitrate, SeesPendingValuesAndEndsAtAFailedRead) {
  const ChangeSet bitrate{{encoders + "venc1/h264/bitrate", "1900000"}};
  ChangeSet expected = bitrate;
  expected[mux1 + "/bitrate"] = "2256000";
  EXPECT_EQ(run(applyMuxBitrateRule, {}, bitrate).changes, expected);
  // The pending encoder spares one read; the mode of multiplexer 2 is then the eighth.
  EXPECT_EQ(run(applyMuxBitrateRule, {}, bitrate, 8).changes, expected);
  for (const std::size_t gone : {1, 2, 3, 4, 5, 6, 7}) {
    EXPECT_EQ(run(applyMuxBitrateRule, {}, bitrate, gone).changes, bitrate) << gone;
  }

  const ChangeSet own{{mux1 + "/bitrate", "1"}};
  EXPECT_EQ(run(applyMuxBitrateRule, {}, own).changes, own);
  EXPECT_EQ(run(applyMuxBitrateRule, {{mux1 + "/bitrate", "2"}}, own).changes,
            (ChangeSet{{mux1 + "/bitrate", "4466526"}}));
}
