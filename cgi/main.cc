#include <cgicc/Cgicc.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>
#include <utility>

#include "cgi/limits.h"
#include "cgi/reply.h"
#include "cgi/request.h"
#include "read_service/read_request.h"
#include "write_service/write_request.h"

/// Hands the request to one service. A request without "read" or both "write" and "value" gets no
/// answer.
static void dispatch(RequestFields fields, Limits& limits) {
  if (fields.read) {
    handleReadRequest(std::move(*fields.read));
  } else if (fields.write && fields.value) {
    if (limits.takeTurn()) {
      handleWriteRequest(std::move(*fields.write), std::move(*fields.value),
                         [&limits](bool isChild) { limits.beginApply(isChild); });
    } else {
      writeInternalServerError();
    }
  }
}

/// Refuses a request that may be forged. Of its text, only the method is logged.
static void refuse() {
  const char* const method = std::getenv("REQUEST_METHOD");
  syslog(LOG_WARNING, "Refused a %.16s request without X-Requested-With",
         method != nullptr ? method : "nameless");
  writeForbidden();
}

/// Opens each closed standard stream on "/dev/null". Otherwise the daemon's connection would take
/// its number.
static void openStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is `stream`, as all below it are open.
    if (fcntl(stream, F_GETFD) == -1) open("/dev/null", O_RDWR);
  }
}

/// Whether a script with limits started this process: its "#!" line names the program by a path
/// with this end. By its usual path the program takes no script, as a web server may pass words of
/// the query as arguments.
static bool isInterpreter(std::string_view path) {
  constexpr std::string_view end = "/limits/tzr4417.cgi";
  return path.size() >= end.size() && path.substr(path.size() - end.size()) == end;
}

/// The only place to catch exceptions. Output written before one stays, and the 500 reply follows
/// it.
int main(int argc, char** argv) {
  // If the browser leaves, a write must not end between its puts and its save.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  openStandardStreams();
  openlog("tzr4417.cgi", LOG_PID, LOG_USER);
  try {
    Limits limits;
    if (argc > 0 && isInterpreter(argv[0])) {
      limits.apply(argc > 1 ? argv[1] : "");
      if (mayBeForged()) {
        refuse();
        return 0;
      }
    }
    if (bodyExceedsLimit()) return 1;
    const cgicc::Cgicc request;
    dispatch(readFields(request), limits);
  } catch (const std::exception& e) {
    syslog(LOG_ERR, "Caught exception %s", e.what());
    writeInternalServerError();
    std::cout << "Exception " << e.what() << std::endl;
  }
  return 0;
}
