#include <cgicc/Cgicc.h>
#include <syslog.h>

#include <exception>
#include <iostream>
#include <utility>

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

/// The one place that catches exceptions. What a service wrote before one stays, and the 500 reply
/// follows it.
int main(int /*argc*/, char** /*argv*/) {
  openlog("tzr4417.cgi", LOG_PID, LOG_USER);
  try {
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
