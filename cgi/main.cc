#include <cgicc/Cgicc.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string_view>
#include <utility>

#include "cgi/limits.h"
#include "cgi/reply.h"
#include "cgi/request.h"
#include "read_service/read_request.h"
#include "write_service/write_request.h"

/// Hands the request to one service; one that neither reads nor wholly writes gets no answer.
static void dispatch(RequestFields fields) {
  if (fields.read) {
    handleReadRequest(std::move(*fields.read));
  } else if (fields.write && fields.value) {
    handleWriteRequest(std::move(*fields.write), std::move(*fields.value));
  }
}

/// Opens each standard stream that the web server left closed on "/dev/null", so that the daemon's
/// connection cannot take its place.
static void openStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is `stream`, as all below it are open.
    if (fcntl(stream, F_GETFD) == -1) open("/dev/null", O_RDWR);
  }
}

/// Whether this process is the interpreter of a script that sets limits, which names the program by
/// this path. By its usual path it takes no script: a web server may pass on words of the query as
/// arguments.
static bool isInterpreter(std::string_view path) {
  constexpr std::string_view end = "/limits/tzr4417.cgi";
  return path.size() >= end.size() && path.substr(path.size() - end.size()) == end;
}

/// The one place that catches exceptions. What a service wrote before one stays, and the 500 reply
/// follows it.
int main(int argc, char** argv) {
  // A browser that has gone must not end a write between its puts and its save.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  openStandardStreams();
  openlog("tzr4417.cgi", LOG_PID, LOG_USER);
  try {
    if (argc > 0 && isInterpreter(argv[0])) {
      applyLimits(argc > 1 ? argv[1] : "");
      if (mayBeForged()) {
        writeForbidden();
        return 0;
      }
    }
    if (bodyExceedsLimit()) return 1;
    const cgicc::Cgicc request;
    dispatch(readFields(request));
  } catch (const std::exception& e) {
    syslog(LOG_ERR, "Caught exception %s", e.what());
    writeInternalServerError();
    std::cout << "Exception " << e.what() << std::endl;
  }
  return 0;
}
