#include "tests/fake_daemon.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// Not the program's own: a mistake there must show.
static const std::string prompt = "/> ";
static const std::string unknown = "No such file or directory";

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
