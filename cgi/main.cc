#include <cgicc/Cgicc.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <utility>

#include "cgi/reply.h"
#include "cgi/request.h"
#include "cgi/script.h"
#include "read_service/read_request.h"
#include "write_service/write_request.h"

/// Hands the request to one service. A request with neither "read" nor both "write" and "value"
/// gets no answer.
static void dispatch(RequestFields fields, const Script& script) {
  if (fields.read) return handleReadRequest(std::move(*fields.read));
  if (!fields.write || !fields.value) return;
  if (!script.mayWrite()) {
    logRequester(LOG_WARNING, "Refused a write");
    return writeForbidden("This user may not write");
  }
  if (!script.takeTurn()) return writeInternalServerError();
  handleWriteRequest(std::move(*fields.write), std::move(*fields.value), script);
}

/// Refuses a request that may be forged. Logs only its method: all else is a stranger's text.
static void refuse() {
  const char* const method = std::getenv("REQUEST_METHOD");
  syslog(LOG_WARNING, "Refused a %.16s request without X-Requested-With",
         method != nullptr ? method : "nameless");
  writeForbidden("No X-Requested-With header");
}

/// Opens each closed standard stream on "/dev/null". Otherwise the daemon's connection would take
/// its number, and a write's child would close it. Throws if it cannot be opened.
static void openStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is `stream`, as all below it are open.
    if (fcntl(stream, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1) {
      // The answer would go to the log, whose connection now takes the number.
      if (stream == STDOUT_FILENO) std::cout.setstate(std::ios::failbit);
      throw std::runtime_error(std::string("Cannot open /dev/null: ") + std::strerror(errno));
    }
  }
}

/// Whether a script with limits started this process: its "#!" line names a link with this end, and
/// `path` is argument 0. By any other path the program ignores its arguments: a web server may pass
/// words of the query.
static bool isInterpreter(std::string_view path) {
  constexpr std::string_view end = "/limits/tzr4417.cgi";
  return path.size() >= end.size() && path.substr(path.size() - end.size()) == end;
}

/// Catches all exceptions of the program. The 500 reply follows any output written before.
int main(int argc, char** argv) {
  // If the browser leaves, a write must not end between its puts and its save.
  std::ignore = std::signal(SIGPIPE, SIG_IGN);
  openlog("tzr4417.cgi", LOG_PID, LOG_USER);
  try {
    openStandardStreams();
    Script script;
    if (argc > 0 && isInterpreter(argv[0])) {
      script.open(argc > 1 ? argv[1] : "");
      if (mayBeForged()) {
        refuse();
        return 0;
      }
    }
    if (bodyExceedsLimit()) return 1;
    const cgicc::Cgicc request;
    dispatch(readFields(request), script);
  } catch (const std::exception& e) {
    syslog(LOG_ERR, "Caught exception %s", e.what());
    writeInternalServerError();
    std::cout << "Exception " << e.what() << std::endl;
  }
  return 0;
}
