#include "tests/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>

#ifdef __UCLIBC__
static const char* const messageEnd = R"(\0)";  // it sends the terminating zero too
#else
static const char* const messageEnd = "";
#endif

static int bindLog() {
  const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address{AF_UNIX, "/dev/log"};
  unlink(address.sun_path);
  EXPECT_EQ(bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return log;
}

static pid_t start(Strings command, Strings environment, int input, int output) {
  const auto pointers = [](Strings& strings) {
    std::vector<char*> list;
    for (std::string& text : strings) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
  };
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_adddup2(&streams, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&streams, output, STDERR_FILENO);
  pid_t process = -1;
  EXPECT_EQ(posix_spawnp(&process, command[0].c_str(), &streams, nullptr, pointers(command).data(),
                         pointers(environment).data()),
            0);
  posix_spawn_file_actions_destroy(&streams);
  close(input);
  close(output);
  return process;
}

static void readLog(int log, Strings& messages) {
  char message[8192];
  for (ssize_t size; (size = recv(log, message, sizeof message, MSG_DONTWAIT)) > 0;) {
    messages.emplace_back(message, static_cast<std::size_t>(size));
  }
}

static std::pair<pid_t, int> await(pid_t process) {
  int status = 0;
  const pid_t ended = waitpid(process, &status, 0);
  return {ended, ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

Response respond(Strings environment, const std::string& body, Strings before,
                 const std::function<void()>& whenAnswered) {
  const int log = bindLog();
  int in[2];
  int out[2];
  EXPECT_EQ(pipe2(in, O_CLOEXEC) + pipe2(out, O_CLOEXEC), 0);
  EXPECT_EQ(write(in[1], body.data(), body.size()), static_cast<ssize_t>(body.size()));
  close(in[1]);
  for (const char* part : {TEST_EMULATOR, TEST_PROGRAM}) {
    if (*part != '\0') before.emplace_back(part);
  }
  const pid_t parent = start(before, std::move(environment), in[0], out[1]);

  std::string output;
  Strings messages;
  char chunk[4096];
  for (ssize_t size = 1; size > 0;) {
    // A log socket that nobody reads would soon block the program.
    pollfd ready[] = {{out[0], POLLIN, 0}, {log, POLLIN, 0}};
    poll(ready, 2, -1);
    readLog(log, messages);
    if (ready[0].revents == 0) continue;
    size = read(out[0], chunk, sizeof chunk);
    output.append(chunk, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  }
  close(out[0]);
  const int exitStatus = await(parent).second;
  whenAnswered();
  const auto [child, childExitStatus] = await(-1);  // ours, as scripts/isolate makes us process 1
  readLog(log, messages);
  close(log);

  static const std::regex format(std::string(R"(<(\d+)>.{15} tzr4417\.cgi\[(\d+)\]: ([^]*))") +
                                 messageEnd);
  for (std::string& message : messages) {
    std::smatch parts;
    EXPECT_TRUE(std::regex_match(message, parts, format)) << message;
    const pid_t logger = std::stoi(parts[2]);
    const char* const name = logger == parent ? " parent " : logger == child ? " child " : " ? ";
    message = parts[1].str() + name + parts[3].str();
  }
  return {output, exitStatus, childExitStatus, messages};
}
