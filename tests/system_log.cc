#include "tests/system_log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <regex>

SystemLog::SystemLog() : socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const char path[] = "/dev/log";
  std::memcpy(address.sun_path, path, sizeof path);
  unlink(path);
  EXPECT_EQ(bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  reader = std::thread([this] {
    char message[8192];
    for (ssize_t size; (size = recv(socket, message, sizeof message, 0)) > 0;) {
      messages.emplace_back(message, static_cast<std::size_t>(size));
    }
  });
}

SystemLog::~SystemLog() {
  stop();
  close(socket);
}

void SystemLog::stop() {
  shutdown(socket, SHUT_RD);  // what is queued is still read
  if (reader.joinable()) reader.join();
}

std::vector<std::string> SystemLog::lines(const std::vector<std::pair<pid_t, std::string>>& names) {
  stop();
  std::vector<std::string> lines;
  for (const std::string& message : messages) {
    // <PRIORITY>Mmm dd hh:mm:ss tzr4417.cgi[PID]: text
    static const std::regex format(R"(<(\d+)>.{15} tzr4417\.cgi\[(\d+)\]: ([^]*))");
    std::smatch parts;
    if (!std::regex_match(message, parts, format)) {
      lines.push_back("malformed: " + message);
      continue;
    }
    std::string name = "unknown";
    for (const auto& [pid, its] : names) {
      if (std::to_string(pid) == parts[2]) name = its;
    }
    lines.push_back(parts[1].str() + ' ' + name + ' ' + parts[3].str());
  }
  return lines;
}
