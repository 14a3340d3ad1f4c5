#include "config_client/uds_connection.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "config_client/protocol.h"

UdsConnection::UdsConnection() {
  open();
  std::string greeting;
  readReply(greeting);
}

UdsConnection::~UdsConnection() { close(); }

void UdsConnection::open() {
  close();
  fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd == -1) {
    fail(UdsStatus::OpenFailed);
    return;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath, sizeof socketPath);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
    fail(UdsStatus::ConnectFailed);
  } else {
    succeed();
  }
}

void UdsConnection::close() {
  if (fd != -1) {
    ::close(fd);
    fd = -1;
  }
}

bool UdsConnection::sendLine(std::string line) {
  if (fd == -1) return false;
  if (line.empty()) return true;
  if (line.back() != requestTerminator) line += requestTerminator;
  // A short count passes as success: requests are single short lines. Without MSG_NOSIGNAL, a lost
  // daemon would end the program before it can answer the browser.
  if (send(fd, line.data(), line.size(), MSG_NOSIGNAL) < 0) return fail(UdsStatus::WriteFailed);
  return succeed();
}

bool UdsConnection::readReply(std::string& reply) {
  if (fd == -1) return false;
  reply.clear();
  // Uninitialised: filling 64 KiB for each reply would slow down every read.
  char buffer[65536];
  std::size_t end = std::string::npos;
  while (end == std::string::npos) {
    const ssize_t received = recv(fd, buffer, sizeof buffer, 0);
    if (received < 0) return fail(UdsStatus::ReadFailed);
    // The prompt may have begun at the end of the pieces before.
    const std::size_t begin = reply.size() - std::min(reply.size(), prompt.size() - 1);
    reply.append(buffer, static_cast<std::size_t>(received));
    end = reply.find(prompt, begin);
  }
  reply.resize(end);
  return succeed();
}

bool UdsConnection::execute(std::string request, std::string& reply) {
  return sendLine(std::move(request)) && readReply(reply);
}

std::string UdsConnection::statusText() const {
  std::string text(statusMessage(status));
  if (savedErrno != 0) text.append(": ").append(std::strerror(savedErrno));
  return text;
}

bool UdsConnection::succeed() {
  status = UdsStatus::Ready;
  savedErrno = 0;
  return true;
}

/// Keeps the error number of the failed call, then closes the socket.
bool UdsConnection::fail(UdsStatus failure) {
  status = failure;
  savedErrno = errno;
  close();
  return false;
}
