#include "tests/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>

static int bindLog() {
  const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address{AF_UNIX, "/dev/log"};
  unlink(address.sun_path);
  EXPECT_TRUE(log >= 0 &&
              bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
  return log;
}

/// Starts a command in a process group of its own, and closes its ends of the pipes.
static pid_t start(Strings command, int input, int output) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    setpgid(0, 0);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(input);
  close(output);
  return process;
}

/// The exit status of `process`, or of any child; sets `process` to it.
static int await(pid_t& process) {
  int status = 0;
  process = waitpid(process, &status, 0);
  if (process < 0) return noProcess;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Response runProgram(const Request& request) {
  const int log = bindLog();
  int in[2];
  int out[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in) + pipe2(out, O_CLOEXEC), 0);
  EXPECT_EQ(write(in[1], request.body.data(), request.body.size()),
            static_cast<ssize_t>(request.body.size()));
  shutdown(in[1], SHUT_WR);
  Strings command{"env", "-i"};
  const Strings emulator(*TEST_EMULATOR != '\0' ? 1 : 0, TEST_EMULATOR);
  for (const Strings& words : {request.environment, request.before, emulator, request.program}) {
    command.insert(command.end(), words.begin(), words.end());
  }
  pid_t parent = start(std::move(command), in[0], out[1]);
  request.whenStarted(parent);

  std::string output;
  Strings messages;
  char chunk[8192];
  const auto readLog = [&] {
    for (ssize_t size; (size = recv(log, chunk, sizeof chunk, MSG_DONTWAIT)) > 0;) {
      messages.emplace_back(chunk, static_cast<std::size_t>(size));
    }
  };
  for (ssize_t size = 1; size > 0;) {
    pollfd ready[] = {{out[0], POLLIN, 0}, {log, POLLIN, 0}};
    poll(ready, 2, -1);
    readLog();  // a full socket would block the program
    if (ready[0].revents == 0) continue;
    size = read(out[0], chunk, sizeof chunk);
    output.append(chunk, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  }
  close(out[0]);
  const int exitStatus = await(parent);
  const bool isInputHeld = recv(in[1], chunk, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
  EXPECT_FALSE(isInputHeld);
  close(in[1]);
  // A web server may do so with its answer in hand. The child has its own session by then.
  if (!output.empty()) kill(-parent, SIGKILL);
  request.whenAnswered();
  pid_t child = -1;
  const int childExitStatus = await(child);  // ours, as scripts/isolate makes us process 1
  readLog();
  close(log);

  const std::string name = " tzr4417.cgi[";
  for (std::string& message : messages) {
    const std::size_t number = message.find(name) + name.size();
    const pid_t logger = std::atoi(&message[number]);
    const char* const who = logger == parent ? " parent " : logger == child ? " child " : " ? ";
    // Up to a zero: uClibc sends the terminator too.
    message = message.substr(1, message.find('>') - 1) + who + &message[message.find("]: ") + 3];
  }
  return {output, exitStatus, childExitStatus, messages};
}

static const char* const traceFile = "/tmp/trace";

Strings strace(const std::string& fault, const Strings& options) {
  Strings command{"strace", "-qqfo", traceFile, "-EASAN_OPTIONS=detect_leaks=0",
                  "-einject=" + fault};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

std::size_t countInTrace(const std::string& text) {
  std::ifstream trace(traceFile);
  std::size_t count = 0;
  for (std::string line; std::getline(trace, line);) {
    if (line.find(text) != std::string::npos) ++count;
  }
  return count;
}
