#include "tests/appliance.h"

#include <sstream>

Strings paths(const std::string& text) {
  static const Tree folders = {{"net", "/configuration/network/"},
                               {"enc", "/configuration/encoders/"},
                               {"venc1", "/configuration/encoders/venc1/"},
                               {"venc2", "/configuration/encoders/venc2/"},
                               {"in", "/configuration/inputs/"},
                               {"out", "/configuration/outputs/"},
                               {"mux1", "/configuration/outputs/ts/muxer/mux1/"},
                               {"mux2", "/configuration/outputs/ts/muxer/mux2/"},
                               {"rtsp", "/configuration/outputs/rtsp/streams/stream1/"},
                               {"rtmp", "/configuration/outputs/rtmp/streams/stream1/"}};
  Strings list;
  std::istringstream words(text);
  for (std::string folder, path; std::getline(words >> std::ws, folder, ':') && words >> path;) {
    list.push_back(folders.at(folder) + path);
  }
  return list;
}

Tree tree(const std::string& text) {
  Tree values;
  for (const std::string& setting : paths(text)) {
    const std::size_t end = setting.find('=');
    values[setting.substr(0, end)] = end == std::string::npos ? "" : setting.substr(end + 1);
  }
  return values;
}

Tree fixedSettings() {
  return tree(
      "in:video/in1/logo/imagefile=/opt/encsrv/vendor/logos/logo.ppm "
      "in:video/in2/logo/imagefile=/opt/encsrv/vendor/logos/logo.ppm "
      "in:audio/analog_in1/input=line in:audio/analog_in1/micboost=no enc:aenc3/codec=aac "
      "in:video/in1/deinterlacer/mode=advanced rtsp:venc=1 rtmp:venc=1 "
      "out:recorder/stream=2 out:recorder/enable=yes");
}

Tree applianceTree() {
  Tree all = tree(
      "net:ip_addr=192.168.1.10 net:subnet_mask=255.255.255.0 net:broadcast_addr=192.168.1.255 "
      "rtsp:aenc=1 rtmp:aenc=1 enc:aenc1/bitrate=128000 enc:aenc2/bitrate=64000 "
      "enc:aenc3/aac/bitrate=96000 mux1:mode=cbr mux1:component1/encoder=venc1 "
      "mux1:component2/encoder=aenc1 mux1:component3/encoder=off mux1:bitrate=4466526 "
      "mux2:mode=vbr mux2:component1/encoder=venc2 mux2:component2/encoder=aenc2 "
      "mux2:component3/encoder=aenc3 mux2:bitrate=3493333 venc1:input=in1 venc1:codec=h264 "
      "venc1:h264/bitrate=4000000 venc1:frame_ctrl/auto=yes venc1:frame_ctrl/enable=yes "
      "venc1:text_overlay/copy_image=yes venc2:input=in1 venc2:codec=h264 "
      "venc2:h264/bitrate=4000000 venc2:frame_ctrl/auto=yes venc2:frame_ctrl/enable=yes "
      "venc2:text_overlay/copy_image=yes");
  all.merge(fixedSettings());
  return all;
}
