#include "write_service/write_request.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <tuple>

#include "cgi/reply.h"
#include "config_client/config_client.h"
#include "write_service/dependent_changes.h"
#include "write_service/parameter_access.h"

/// Throws for a line break outside quotes, since it would split the request line: a name is never
/// quoted, and a double quote in a value ends the quotes around it.
static void refuseLineBreaks(const ParameterPath& name, const std::string& value) {
  const char* const lineBreaks = "\r\n";
  if (name.find_first_of(lineBreaks) != std::string::npos) {
    throw std::invalid_argument("Line break in parameter name");
  }
  if (value.find_first_of(lineBreaks) != std::string::npos &&
      value.find('"') != std::string::npos) {
    throw std::invalid_argument("Line break and double quote in value");
  }
}

/// Makes `value` a single word of the daemon's command line.
static void quoteIfNeeded(std::string& value) {
  if (value.empty() || value.find_first_of(" \t\r\n\v\f") != std::string::npos) {
    value = '"' + value + '"';
  }
}

static void writeReply(const ParameterPath& name, const std::string& value,
                       const std::string& reply) {
  writeJsonHeader();
  writeJsonMember("{ ", "write", name);
  writeJsonMember(", ", "value", value);
  writeJsonMember(", ", "reply", reply);
  std::cout << " }" << std::endl;
}

static void logReply(const char* command, const std::string& reply) {
  if (!reply.empty()) syslog(LOG_INFO, "Reply from \"%s\": %s", command, reply.c_str());
}

/// Gives up the web server's streams, so that it sees the end of the response. Without "/dev/null"
/// they are closed.
static void letStreamsGo() {
  // First below the C library: freopen flushes, and would wait for ever if nobody takes the reply.
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null, stream);
  close(null);
  std::ignore = std::freopen("/dev/null", "r", stdin);
  std::ignore = std::freopen("/dev/null", "a", stdout);
  std::ignore = std::freopen("/dev/null", "a", stderr);
}

/// Forks: the child goes on, and the calling process ends. If it cannot fork, it goes on itself.
static void detach(const Script& script) {
  const pid_t child = fork();
  if (child > 0) std::exit(0);
  if (child < 0) {
    syslog(LOG_WARNING, "Failed to fork child process, continuing in parent process");
    return script.endAtTimeLimit();
  }
  script.leaveTurn();
  script.limitChild();
  setsid();
  letStreamsGo();
}

void handleWriteRequest(ParameterPath name, std::string value, const Script& script) {
  ConfigClient client;
  if (!client.isConnected()) {
    writeInternalServerError();
    return;
  }
  refuseLineBreaks(name, value);
  std::string reply;
  script.logWrite();
  logSetting(name, value);
  quoteIfNeeded(value);

  ChangeSet changes;
  changes[name] = value;
  addDependentChanges(client, changes, name, value);

  if (client.put(changes, reply)) {
    writeReply(name, value, reply);
    logReply("put", reply);
  } else {
    writeInternalServerError();
    std::cout << reply << std::endl;
  }

  detach(script);
  client.apply(reply);
  logReply("apply", reply);
  client.save(reply);
  logReply("save", reply);
  syslog(LOG_INFO, "Applied and saved the parameter settings");
}
