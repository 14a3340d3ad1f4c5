#pragma once

#include <string>

#include "config_client/uds_status.h"

/// One connection to the configuration daemon, in lock step: a request line, then its whole reply.
///
/// This layer knows lines and prompts and no parameter. A socket error never throws: it closes the
/// connection for good, and `statusText` names it. A call interrupted by a signal counts as such an
/// error: so a limit ends a wait. There is no time-out: every read blocks until the prompt arrives,
/// and never ends when the daemon goes away without one.
class UdsConnection {
 public:
  /// Connects to the daemon and drops its greeting.
  UdsConnection();
  ~UdsConnection();
  UdsConnection(const UdsConnection&) = delete;
  UdsConnection& operator=(const UdsConnection&) = delete;

  /// Closes an open socket and connects anew; `isOpen` tells the outcome. Public for callers
  /// besides this program: it never reconnects.
  void open();

  /// Closes the socket, if it is open; the status stays.
  void close();

  [[nodiscard]] bool isOpen() const { return fd >= 0; }

  /// Sends `line`, with a carriage return added unless it ends in one. An empty line sends nothing
  /// and succeeds. False if the connection is closed, or fails now.
  bool sendLine(std::string line);

  /// Leaves in `reply` the text before the daemon's prompt, untrimmed. False on failure: `reply`
  /// then holds the text received so far, or is untouched if the connection was closed before.
  bool readReply(std::string& reply);

  /// One exchange, `sendLine` then `readReply`; `reply` is untouched if the request was not sent.
  bool execute(std::string request, std::string& reply);

  /// "Ready", or the failure and, after ": ", the C library's text for its error number.
  [[nodiscard]] std::string statusText() const;

 private:
  bool succeed();
  bool fail(UdsStatus failure);

  int fd = -1;
  UdsStatus status = UdsStatus::OpenFailed;
  int savedErrno = 0;
};
