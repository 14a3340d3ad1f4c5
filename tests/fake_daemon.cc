#include "tests/fake_daemon.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <memory>

#include "config_client/protocol.h"

Answers answersFrom(Tree tree, Tree others) {
  return [tree, others](const std::string& line) -> Answer {
    const bool isRead = line.rfind("ls ", 0) == 0;
    const Tree& texts = isRead ? tree : others;
    const auto found = texts.find(isRead ? line.substr(3) : line.substr(0, line.find(' ')));
    const std::string none = isRead ? std::string(noSuchParameter) : "";
    const std::string text = found == texts.end() ? none : found->second;
    return {text + (text.empty() ? "" : "\r\n") + std::string(prompt)};
  };
}

Answers goneAt(std::size_t exchange, Answers answers) {
  const auto count = std::make_shared<std::size_t>(0);
  return [=](const std::string& line) {
    return (*count)++ == exchange ? Answer{"", true} : answers(line);
  };
}

FakeDaemon::FakeDaemon(Answers theAnswers, std::size_t thePiece)
    : answers(std::move(theAnswers)),
      piece(thePiece),
      listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_un address{AF_UNIX, "/tmp/cffs_uds"};
  unlink(address.sun_path);
  EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(listener, 1), 0);
  server = std::thread([this] { serve(); });
}

FakeDaemon::~FakeDaemon() {
  requests();
  close(listener);
}

Lines FakeDaemon::requests() {
  shutdown(listener, SHUT_RDWR);  // nobody has to have come
  if (server.joinable()) server.join();
  return lines;
}

void FakeDaemon::serve() {
  const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) return;
  char buffer[65536];
  for (bool here = answer(client, ""); here;) {
    // Only looked at: what stays unread at the close is what makes it a reset.
    const ssize_t size = recv(client, buffer, sizeof buffer, MSG_PEEK);
    if (size <= 0) break;
    const std::string data(buffer, static_cast<std::size_t>(size));
    lines.push_back(data.substr(0, data.find(requestTerminator)));
    here = answer(client, lines.back());
    if (here) recv(client, buffer, lines.back().size() + 1, 0);
  }
  close(client);
}

bool FakeDaemon::answer(int client, const std::string& line) {
  const auto [bytes, gone] = answers(line);
  const std::size_t step = piece == 0 ? bytes.size() : piece;
  for (std::size_t sent = 0; sent < bytes.size(); sent += step) {
    send(client, &bytes[sent], std::min(step, bytes.size() - sent), MSG_NOSIGNAL);
    for (int unread = 1; piece != 0 && unread > 0; usleep(100)) ioctl(client, SIOCOUTQ, &unread);
  }
  return !gone;
}
