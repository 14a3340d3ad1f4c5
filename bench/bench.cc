// Compares builds of tzr4417.cgi with the floor program, run by run.
//
// A busy machine slows everything down for a while, so the times of two builds cannot be
// compared. Each run of a build is therefore paired with a run of the floor right before or after
// it. The result is the median of the ratios of the pairs.

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "config_client/protocol.h"

namespace {

using Clock = std::chrono::steady_clock;
using Texts = std::vector<std::string>;

constexpr char dialogueFile[] = "/tmp/bench_dialogues";
/// The longest reply fits into the pipe, so no run waits for a reader.
constexpr int pipeCapacity = 1 << 20;

struct Request {
  std::string label;
  Texts environment;
  bool detaches;  ///< leaves a child after the reply
  int pairsPerRound;
};

struct Run {
  double wall = 0;  ///< milliseconds until the started process has ended
  double cpu = 0;   ///< milliseconds, with those of the detached child
  double faults = 0;
  double peak = 0;  ///< kB
  std::string reply;
};

struct Results {
  std::vector<double> ratio, wall, cpu, faults, peak;
};

struct Build {
  std::string name;
  std::string path;
  std::vector<Results> results;  ///< one for each request
};

enum class Spawn { Fast, OwnMemory };

}  // namespace

static int check(long result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
  return static_cast<int>(result);
}

static double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// A new socket, tied to `path` by `attach` (`bind` or `connect`), or -1.
static int unixSocket(int type, const char* path, decltype(&connect) attach) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  const int fd = check(socket(AF_UNIX, type | SOCK_CLOEXEC, 0), "socket");
  if (attach(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

static std::vector<char*> pointers(const Texts& texts) {
  std::vector<char*> result;
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

/// Starts a program with its standard output on `output`. A fast start shares our memory until the
/// program begins, so its peak includes ours; with `OwnMemory` it does not.
static pid_t start(const Texts& arguments, const Texts& environment, int output, Spawn how) {
  const std::vector<char*> argv = pointers(arguments);
  const std::vector<char*> envp = pointers(environment);
  pid_t pid = -1;
  if (how == Spawn::Fast) {
    posix_spawn_file_actions_t streams;
    posix_spawn_file_actions_init(&streams);
    posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
    posix_spawn(&pid, argv[0], &streams, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&streams);
  } else if ((pid = fork()) == 0) {
    dup2(output, STDOUT_FILENO);
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  return check(pid, "start");
}

/// Waits for `pid`, or with -1 for an orphaned child, and adds its usage.
static void finish(pid_t pid, Run& run) {
  int status = 0;
  rusage usage{};
  check(wait4(pid, &status, 0, &usage), "wait4");
  if (status != 0) throw std::runtime_error("a process ended with " + std::to_string(status));
  for (const timeval& time : {usage.ru_utime, usage.ru_stime}) {
    run.cpu += static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
  }
  run.faults += static_cast<double>(usage.ru_minflt + usage.ru_majflt);
  run.peak = std::max(run.peak, static_cast<double>(usage.ru_maxrss));
}

static int nowhere() {
  static const int fd = check(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null");
  return fd;
}

static Run runOnce(const Build& build, const Request& request, Spawn how = Spawn::Fast) {
  int ends[2];
  check(pipe2(ends, O_CLOEXEC), "pipe2");
  check(fcntl(ends[1], F_SETPIPE_SZ, pipeCapacity), "F_SETPIPE_SZ");
  Run run;
  const Clock::time_point begin = Clock::now();
  finish(start({build.path}, request.environment, ends[1], how), run);
  run.wall = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
  // A child still at work would disturb the next run.
  if (request.detaches) finish(-1, run);
  close(ends[1]);
  static char reply[pipeCapacity];
  const int size = check(read(ends[0], reply, sizeof reply), "read");
  close(ends[0]);
  run.reply.assign(reply, static_cast<std::size_t>(size));
  return run;
}

/// Starts the simulator and waits until it can be connected to; its dialogues go to `dialogueFile`.
static pid_t startDaemon(const Texts& options) {
  Texts command{"/bin/sh", "-c", R"(exec "$0" "$@" 2>)" + std::string(dialogueFile)};
  command.insert(command.end(), options.begin(), options.end());
  const pid_t pid = start(command, {}, nowhere(), Spawn::Fast);
  for (int tries = 0; tries < 100; ++tries) {
    const int probe = unixSocket(SOCK_STREAM, socketPath, connect);
    close(probe);
    if (probe >= 0) return pid;
    usleep(50000);
  }
  throw std::runtime_error("the daemon does not answer");
}

/// The requests of the last client, from the simulator's record: "12> ls /a^M" for client 12.
static std::string lastRequests() {
  std::ifstream dialogues(dialogueFile);
  std::string sent;
  std::string last;
  for (std::string line; std::getline(dialogues, line);) {
    const std::size_t number = line.find_first_not_of("0123456789");
    if (line.substr(0, number) != last) sent.clear();
    last = line.substr(0, number);
    if (line.compare(number, 2, "> ") != 0) continue;
    sent += line.substr(number + 2, line.find("^M") - number - 2) + requestTerminator;
  }
  return sent;
}

/// All requests have the same variables, so that they cost every program the same.
static Texts environment(const std::string& query, const std::string& exchanges) {
  return {"GATEWAY_INTERFACE=CGI/1.1",  "REQUEST_METHOD=GET",    "SCRIPT_NAME=/tzr4417.cgi",
          "SERVER_PROTOCOL=HTTP/1.1",   "QUERY_STRING=" + query, "BENCH_REQUESTS=" + exchanges,
          "HTTP_X_REQUESTED_WITH=bench"};
}

/// A read of `count` names, taken from the reads of `exchanges` over and over.
static Request readRequest(const std::string& exchanges, std::size_t count, int pairsPerRound) {
  const std::string command = "ls ";
  Texts names;
  std::istringstream lines(exchanges);
  for (std::string line; std::getline(lines, line, requestTerminator);) {
    if (line.rfind(command, 0) == 0) names.push_back(line.substr(command.size()));
  }
  std::string query = "read=" + names.at(0);
  for (std::size_t i = 1; i < count; ++i) query += "," + names[i % names.size()];
  return {"read " + std::to_string(count), environment(query, exchanges), false, pairsPerRound};
}

/// Drains the log, as a system's logger does: a full socket would make the builds wait.
static void drainLog() {
  const int log = check(unixSocket(SOCK_DGRAM, "/dev/log", bind), "/dev/log");
  char message[65536];
  if (check(fork(), "fork") == 0) {
    while (recv(log, message, sizeof message, 0) >= 0) continue;
    _exit(1);
  }
  close(log);
}

static void keep(const Run& run, const Run& floor, Results& results) {
  results.ratio.push_back(run.wall / floor.wall);
  results.wall.push_back(run.wall);
  results.cpu.push_back(run.cpu);
  results.faults.push_back(run.faults);
}

/// Before anything is timed: compares all replies, and records the peaks.
static void compareReplies(std::vector<Build>& builds, const std::vector<Request>& requests) {
  for (const Request& request : requests) {
    const std::string expected = runOnce(builds[0], request).reply;
    for (Build& build : builds) {
      Results& results = build.results.emplace_back();
      for (int i = 0; i < 9; ++i) {
        const Run run = runOnce(build, request, Spawn::OwnMemory);
        if (run.reply != expected) throw std::runtime_error("reply differs: " + build.path);
        results.peak.push_back(run.peak);
      }
    }
  }
}

/// One run each, right after one another; `i` is the request's number.
static void comparePair(Build& floor, Build& build, const Request& request, std::size_t i,
                        bool floorFirst) {
  const Run first = runOnce(floorFirst ? floor : build, request);
  const Run second = runOnce(floorFirst ? build : floor, request);
  const Run& ofFloor = floorFirst ? first : second;
  keep(ofFloor, ofFloor, floor.results[i]);
  keep(floorFirst ? second : first, ofFloor, build.results[i]);
}

static void comparePairs(std::vector<Build>& builds, const std::vector<Request>& requests,
                         std::chrono::seconds duration) {
  const bool terminal = isatty(STDERR_FILENO) == 1;
  const Clock::time_point end = Clock::now() + duration;
  for (bool floorFirst = true; Clock::now() < end; floorFirst = !floorFirst) {
    alarm(60);  // a program without its daemon never ends
    const auto left = std::chrono::duration_cast<std::chrono::seconds>(end - Clock::now());
    if (terminal) std::cerr << '\r' << left.count() << " s left " << std::flush;
    for (std::size_t i = 0; i < requests.size(); ++i) {
      for (std::size_t b = 1; b < builds.size(); ++b) {
        for (int pair = 0; pair < requests[i].pairsPerRound; ++pair) {
          comparePair(builds[0], builds[b], requests[i], i, floorFirst);
        }
      }
    }
  }
  if (terminal) std::cerr << "\r            \r";
}

static void printTable(const std::vector<Build>& builds, const std::vector<Request>& requests) {
  std::printf(
      "| request | build | ratio | wall ms | cpu ms | faults | peak kB | bytes | pairs |\n"
      "|---|---|---:|---:|---:|---:|---:|---:|---:|\n");
  for (std::size_t i = 0; i < requests.size(); ++i) {
    for (const Build& build : builds) {
      struct stat file = {};
      check(stat(build.path.c_str(), &file), build.path.c_str());
      const Results& results = build.results[i];
      std::printf("| %-9s | %-8s | %5.2f | %7.3f | %7.3f | %4.0f | %5.0f | %8ld | %5zu |\n",
                  requests[i].label.c_str(), build.name.c_str(), median(results.ratio),
                  median(results.wall), median(results.cpu), median(results.faults),
                  median(results.peak), static_cast<long>(file.st_size), results.ratio.size());
    }
  }
}

/// Of `builds`, the floor is the first.
static void bench(std::vector<Build> builds, const Texts& daemon, std::chrono::seconds duration) {
  const std::string query = "write=/configuration/network/ip_addr&value=192.168.1.10";
  Request write{"write", environment(query, ""), true, 4};
  Texts recorder = daemon;
  recorder.emplace_back("--verbose");  // takes time, so only here
  const pid_t daemonPid = startDaemon(recorder);
  // The first write puts the dependent parameters right; the later ones are all alike.
  for (int i = 0; i < 2; ++i) runOnce(builds[1], write);
  Run ignored;
  kill(daemonPid, SIGTERM);
  finish(daemonPid, ignored);
  const std::string exchanges = lastRequests();
  write.environment = environment(query, exchanges);
  startDaemon(daemon);

  const std::vector<Request> requests = {
      readRequest(exchanges, 1, 8), readRequest(exchanges, 10, 8), readRequest(exchanges, 100, 4),
      readRequest(exchanges, 1000, 1), write};
  compareReplies(builds, requests);
  comparePairs(builds, requests, duration);
  printTable(builds, requests);
}

/// A file lies in the page cache in one piece or in many, depending on its origin. That alone makes
/// a start up to 15 % slower or faster. Copies in one folder are all alike.
static std::string copyProgram(const std::string& path, const std::string& name) {
  std::string copy = "/tmp/bench_" + name;
  std::filesystem::copy_file(path, copy);
  return copy;
}

/// Keeps this process and its children on one processor. On two, each message may wake an idle one;
/// this takes longer than the exchange itself, and depends on the load.
static void stayOnOneProcessor() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(static_cast<std::size_t>(check(sched_getcpu(), "sched_getcpu")), &processors);
  check(sched_setaffinity(0, sizeof processors, &processors), "sched_setaffinity");
}

/// bench SECONDS DAEMON TREE floor=PROGRAM NAME=PROGRAM..., in scripts/isolate, to end all
/// processes left over.
int main(int argc, char** argv) {
  if (argc < 6) {
    std::cerr << "usage: bench SECONDS DAEMON TREE floor=PROGRAM NAME=PROGRAM...\n";
    return 2;
  }
  std::vector<Build> builds;
  for (const std::string& argument : Texts(argv + 4, argv + argc)) {
    const std::size_t separator = argument.find('=');
    builds.push_back({argument.substr(0, separator),
                      copyProgram(argument.substr(separator + 1), argument.substr(0, separator)),
                      {}});
  }
  try {
    stayOnOneProcessor();
    drainLog();
    bench(builds, {argv[2], "--tree", argv[3]}, std::chrono::seconds(std::atoi(argv[1])));
  } catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
  }
  return 0;
}
