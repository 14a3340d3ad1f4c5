#pragma once

#include <sys/types.h>

#include <string>
#include <thread>
#include <vector>

/// Receives the system log while it lives, on /dev/log. Always reading: a full log socket would
/// block the program.
class SystemLog {
 public:
  SystemLog();
  ~SystemLog();
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;

  /// All that was logged, to be asked when those who log have ended. Each line is "PRIORITY NAME
  /// text", with the name that `names` has for the logging process.
  std::vector<std::string> lines(const std::vector<std::pair<pid_t, std::string>>& names);

 private:
  void stop();

  int socket;
  std::vector<std::string> messages;
  std::thread reader;
};
