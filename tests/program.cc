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

static int statusOf(pid_t process, pid_t& waited) {
  int status = 0;
  waited = waitpid(process, &status, 0);
  return waited > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Program::Program(Strings environment, const std::string& body, const Strings& before)
    : logSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_un address{AF_UNIX, "/dev/log"};
  unlink(address.sun_path);
  EXPECT_EQ(bind(logSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  int in[2];
  int out[2];
  EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
  EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
  EXPECT_EQ(write(in[1], body.data(), body.size()), static_cast<ssize_t>(body.size()));
  close(in[1]);

  Strings command = before;
  for (const char* part : {TEST_EMULATOR, TEST_PROGRAM}) {
    if (*part != '\0') command.emplace_back(part);
  }
  const auto pointers = [](Strings& strings) {
    std::vector<char*> list;
    for (std::string& text : strings) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
  };
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_adddup2(&streams, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&streams, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&streams, out[1], STDERR_FILENO);
  EXPECT_EQ(posix_spawnp(&parent, command[0].c_str(), &streams, nullptr, pointers(command).data(),
                         pointers(environment).data()),
            0);
  posix_spawn_file_actions_destroy(&streams);
  close(in[0]);
  close(out[1]);
  outputEnd = out[0];
}

Program::~Program() {
  close(outputEnd);
  close(logSocket);
}

std::string Program::output() {
  std::string all;
  char chunk[4096];
  for (;;) {
    // A log socket that nobody reads would soon block the program.
    pollfd ready[] = {{outputEnd, POLLIN, 0}, {logSocket, POLLIN, 0}};
    poll(ready, 2, -1);
    readLog();
    if (ready[0].revents == 0) continue;
    const ssize_t size = read(outputEnd, chunk, sizeof chunk);
    if (size <= 0) return all;
    all.append(chunk, static_cast<std::size_t>(size));
  }
}

int Program::exitStatus() const {
  pid_t waited = -1;
  return statusOf(parent, waited);
}

int Program::detachedExitStatus() { return statusOf(-1, child); }

void Program::readLog() {
  char message[8192];
  for (ssize_t size; (size = recv(logSocket, message, sizeof message, MSG_DONTWAIT)) > 0;) {
    messages.emplace_back(message, static_cast<std::size_t>(size));
  }
}

Strings Program::log() {
  readLog();
  // <PRIORITY>Mmm dd hh:mm:ss tzr4417.cgi[PID]: TEXT
  static const std::regex format(std::string(R"(<(\d+)>.{15} tzr4417\.cgi\[(\d+)\]: ([^]*))") +
                                 messageEnd);
  Strings lines;
  for (const std::string& message : messages) {
    std::smatch parts;
    EXPECT_TRUE(std::regex_match(message, parts, format)) << message;
    const char* const process = parts[2] == std::to_string(parent)  ? " parent "
                                : parts[2] == std::to_string(child) ? " child "
                                                                    : " stranger ";
    lines.push_back(parts[1].str() + process + parts[3].str());
  }
  return lines;
}

Response respond(const Strings& environment, const std::string& body, const Strings& before) {
  Program program(environment, body, before);
  const std::string output = program.output();
  const int exitStatus = program.exitStatus();
  const int detachedExitStatus = program.detachedExitStatus();
  return {output, exitStatus, detachedExitStatus, program.log()};
}
