#include "tests/fake_daemon.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "config_client/protocol.h"

static std::string ended(const std::string& text) {
  return text + (text.empty() ? "" : "\r\n") + std::string(prompt);
}

Answers answersFrom(Tree tree, Tree others) {
  return [tree, others](const std::string& line) -> Answer {
    if (line.empty()) return {ended("Welcome")};
    if (line.rfind("ls ", 0) != 0) {
      const auto found = others.find(line.substr(0, line.find(' ')));
      return {ended(found == others.end() ? "" : found->second)};
    }
    const auto found = tree.find(line.substr(3));
    return {ended(found == tree.end() ? std::string(noSuchParameter) : found->second)};
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
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath, sizeof socketPath);
  unlink(socketPath);
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
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
  client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) return;
  bool here = answer("");
  char buffer[65536];
  while (here) {
    // Only looked at: what stays unread at the close is what makes it a reset.
    const ssize_t size = recv(client, buffer, sizeof buffer, MSG_PEEK);
    if (size <= 0) break;
    const std::string data(buffer, static_cast<std::size_t>(size));
    const std::size_t end = data.find(requestTerminator);
    if (end == std::string::npos) continue;
    lines.push_back(data.substr(0, end));
    here = answer(lines.back());
    if (here) recv(client, buffer, end + 1, 0);
  }
  close(client);
}

bool FakeDaemon::answer(const std::string& line) {
  const Answer reply = answers(line);
  const std::size_t step = piece == 0 ? reply.bytes.size() : piece;
  for (std::size_t sent = 0; sent < reply.bytes.size(); sent += step) {
    send(reply.bytes.substr(sent, step));
  }
  return !reply.gone;
}

void FakeDaemon::send(const std::string& bytes) const {
  ::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  for (int unread = 1; piece != 0 && unread > 0; usleep(100)) ioctl(client, SIOCOUTQ, &unread);
}
