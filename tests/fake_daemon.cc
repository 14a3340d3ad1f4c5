#include "tests/fake_daemon.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <sstream>

// Not the program's own: a mistake there must show.
static const std::string prompt = "/> ";
static const std::string unknown = "No such file or directory";

Strings paths(const std::string& text) {
  static const Tree folders = {{"all", ""},
                               {"net", "/configuration/network/"},
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

int boundSocket(int type, const std::string& path) {
  const int bound = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
  sockaddr_un address{AF_UNIX, ""};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  unlink(address.sun_path);
  EXPECT_EQ(bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return bound;
}

Answers answersFrom(Tree tree, Tree others) {
  return [tree, others](const std::string& line) {
    const bool isRead = line.rfind("ls ", 0) == 0;
    const Tree& texts = isRead ? tree : others;
    const auto found = texts.find(isRead ? line.substr(3) : line.substr(0, line.find(' ')));
    const std::string text = found != texts.end() ? found->second : isRead ? unknown : "";
    return (text.empty() ? "" : text + "\r\n") + prompt;
  };
}

FakeDaemon::FakeDaemon(Answers theAnswers, std::size_t thePiece)
    : answers(std::move(theAnswers)),
      piece(thePiece),
      listener(boundSocket(SOCK_STREAM, "/tmp/cffs_uds")) {
  EXPECT_EQ(listen(listener, 1), 0);
  server = std::thread([this] { serve(); });
}

FakeDaemon::~FakeDaemon() {
  requests();
  close(listener);
}

std::string FakeDaemon::requests() {
  shutdown(listener, SHUT_RDWR);  // nobody has to have come
  if (server.joinable()) server.join();
  return lines;
}

void FakeDaemon::serve() {
  const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  ucred peer{};
  socklen_t size = sizeof peer;
  getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size);
  process = peer.pid;
  char buffer[65536];
  ssize_t received = 0;
  for (std::string line; client >= 0;) {
    const std::string answer = answers(line);
    const std::size_t step = piece == 0 ? answer.size() : piece;
    for (std::size_t sent = 0; sent < answer.size(); sent += step) {
      send(client, &answer[sent], std::min(step, answer.size() - sent), MSG_NOSIGNAL);
      for (int unread = 1; piece != 0 && unread > 0; usleep(20)) ioctl(client, SIOCOUTQ, &unread);
    }
    const std::size_t end = answer.rfind(prompt);
    if (end == std::string::npos || end + prompt.size() < answer.size()) break;
    // Take the request only now: unread bytes turn the close into a reset.
    if (received > 0) recv(client, buffer, static_cast<std::size_t>(received), 0);
    received = recv(client, buffer, sizeof buffer, MSG_PEEK);
    if (received <= 0) break;
    line.assign(buffer, static_cast<std::size_t>(received));
    EXPECT_EQ(line.back(), '\r');
    line.pop_back();
    lines += line + '\n';
  }
  close(client);
}
