#include "tests/program.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

/// Starts a command in a process group of its own, and hands it a socket for its three streams.
static pid_t start(Strings command, int streams) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    setpgid(0, 0);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(streams, stream);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(streams);
  return process;
}

static std::string readOnce(int file) {
  std::string text(8192, '\0');
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(read(file, text.data(), text.size()), 0)));
  return text;
}

Response runProgram(const Request& request) {
  const int log = boundSocket(SOCK_DGRAM | SOCK_NONBLOCK, "/dev/log");
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  EXPECT_GE(write(ends[0], request.body.data(), request.body.size()), 0);
  shutdown(ends[0], SHUT_WR);
  Strings command{"env", "-i"};
  const Strings emulator(isEmulated ? 1 : 0, TEST_EMULATOR);
  for (const Strings& words : {request.environment, request.before, emulator, request.program}) {
    command.insert(command.end(), words.begin(), words.end());
  }
  siginfo_t parent{};
  siginfo_t child{};
  const pid_t started = start(std::move(command), ends[1]);
  request.whenStarted(started);

  std::string output;
  Strings messages;
  for (bool isOpen = true; isOpen;) {  // until no process holds any of the three streams
    pollfd ready[] = {{ends[0], POLLIN, 0}, {log, POLLIN, 0}};
    poll(ready, 2, -1);
    if (ready[1].revents != 0) {  // first, as a full socket would block the program
      messages.push_back(readOnce(log));
    } else {
      const std::string text = readOnce(ends[0]);
      output += text;
      isOpen = !text.empty();
    }
  }
  close(ends[0]);
  waitid(P_PID, static_cast<id_t>(started), &parent, WEXITED);
  // A web server may do so with its answer in hand. The child has its own session by then.
  if (!output.empty()) kill(-started, SIGKILL);
  request.whenAnswered();
  // Ours, as scripts/isolate makes us process 1.
  if (waitid(P_ALL, 0, &child, WEXITED) != 0) child.si_status = noProcess;
  for (std::string text; !(text = readOnce(log)).empty();) messages.push_back(text);
  close(log);

  const std::string name = " tzr4417.cgi[";
  for (std::string& message : messages) {
    const pid_t pid = std::atoi(&message[message.find(name) + name.size()]);
    const char* const who = pid == parent.si_pid ? "parent" : pid == child.si_pid ? "child" : "?";
    // Up to a zero: uClibc sends the terminator too.
    const char* const text = &message[message.find("]: ") + 3];
    message = message.substr(1, message.find('>') - 1) + " " + who + " " + text;
  }
  return {output, parent.si_status, child.si_status, messages};
}

Strings strace(const std::string& fault, const Strings& options) {
  Strings command{"strace", "-qqfo/dev/null", "-EASAN_OPTIONS=detect_leaks=0", "-einject=" + fault};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}
