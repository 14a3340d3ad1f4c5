#include "tests/appliance.h"

#include <iterator>
#include <utility>

static const std::string network = "/configuration/network/";
static const std::string encoders = "/configuration/encoders/";
static const std::string muxer = "/configuration/outputs/ts/muxer/";

static const std::pair<const char*, const char*> fixedSettings[] = {
    {"/configuration/inputs/video/in1/logo/imagefile", "/opt/encsrv/vendor/logos/logo.ppm"},
    {"/configuration/inputs/video/in2/logo/imagefile", "/opt/encsrv/vendor/logos/logo.ppm"},
    {"/configuration/inputs/audio/analog_in1/input", "line"},
    {"/configuration/inputs/audio/analog_in1/micboost", "no"},
    {"/configuration/encoders/aenc3/codec", "aac"},
    {"/configuration/inputs/video/in1/deinterlacer/mode", "advanced"},
    {"/configuration/outputs/rtsp/streams/stream1/venc", "1"},
    {"/configuration/outputs/rtmp/streams/stream1/venc", "1"},
    {"/configuration/outputs/recorder/stream", "2"},
    {"/configuration/outputs/recorder/enable", "yes"},
};

Tree applianceTree() {
  Tree tree(std::begin(fixedSettings), std::end(fixedSettings));
  tree.insert({
      {network + "ip_addr", "192.168.1.10"},
      {network + "subnet_mask", "255.255.255.0"},
      {network + "broadcast_addr", "192.168.1.255"},
      {encoders + "aenc1/bitrate", "128000"},
      {encoders + "aenc2/bitrate", "64000"},
      {encoders + "aenc3/aac/bitrate", "96000"},
      {"/configuration/outputs/rtsp/streams/stream1/aenc", "1"},
      {"/configuration/outputs/rtmp/streams/stream1/aenc", "1"},
      {muxer + "mux1/mode", "cbr"},
      {muxer + "mux1/component1/encoder", "venc1"},
      {muxer + "mux1/component2/encoder", "aenc1"},
      {muxer + "mux1/component3/encoder", "off"},
      {muxer + "mux1/bitrate", "4466526"},  // 4000000 * 20 / 19 + 128000 * 2
      {muxer + "mux2/mode", "vbr"},
      {muxer + "mux2/component1/encoder", "venc2"},
      {muxer + "mux2/component2/encoder", "aenc2"},
      {muxer + "mux2/component3/encoder", "aenc3"},
      {muxer + "mux2/bitrate", "3493333"},  // 4000000 * 5 / 6 + 64000 + 96000
  });
  for (const std::string number : {"1", "2"}) {
    const std::string encoder = encoders + "venc" + number;
    tree.insert({{encoder + "/input", "in1"},
                 {encoder + "/codec", "h264"},
                 {encoder + "/h264/bitrate", "4000000"},
                 {encoder + "/frame_ctrl/auto", "yes"},
                 {encoder + "/frame_ctrl/enable", "yes"},
                 {encoder + "/text_overlay/copy_image", "yes"}});
  }
  return tree;
}

Lines fixedSettingsReads() {
  Lines paths;
  for (const auto& [path, value] : fixedSettings) paths.emplace_back(path);
  return paths;
}

Lines muxBitrateReads() {
  return {muxer + "mux1/mode",
          muxer + "mux1/component1/encoder",
          encoders + "venc1/codec",
          encoders + "venc1/h264/bitrate",
          muxer + "mux1/component2/encoder",
          encoders + "aenc1/bitrate",
          muxer + "mux1/component3/encoder",
          muxer + "mux1/bitrate",
          muxer + "mux2/mode",
          muxer + "mux2/component1/encoder",
          encoders + "venc2/codec",
          encoders + "venc2/h264/bitrate",
          muxer + "mux2/component2/encoder",
          encoders + "aenc2/bitrate",
          muxer + "mux2/component3/encoder",
          encoders + "aenc3/aac/bitrate",
          muxer + "mux2/bitrate"};
}

Lines videoEncoderReads() {
  return {muxer + "mux2/component1/encoder",
          encoders + "venc1/codec",
          encoders + "venc2/codec",
          encoders + "venc1/frame_ctrl/auto",
          encoders + "venc1/text_overlay/copy_image",
          encoders + "venc2/frame_ctrl/auto",
          encoders + "venc2/text_overlay/copy_image"};
}
