#pragma once

#include <memory>
#include <string>

#include "config_client/uds_connection.h"
#include "write_service/change_set.h"

/// The configuration daemon's commands, over one connection of its own.
///
/// A client never reconnects: after a transport failure it sends nothing more and every operation
/// fails. A moved-from client has no socket, and its operations fail too. If the daemon answers
/// with a complaint, the operation has succeeded. Names and values go out as they are, unquoted.
/// Every operation blocks until the daemon has answered.
class ConfigClient {
 public:
  /// Connects and consumes the greeting; `isConnected` tells the outcome.
  ConfigClient();

  [[nodiscard]] bool isConnected() const;

  /// Reads one parameter, without the white space around it; the daemon's "No such file or
  /// directory" arrives as a value. On failure `value` holds its former text or the received part
  /// of the reply, trimmed. Without a socket it is untouched.
  bool get(const ParameterPath& name, std::string& value);

  /// Writes all of `changes` in order. Ends at the first failed exchange; the changes before it
  /// stay. `replies` becomes the answers, untrimmed and unseparated.
  bool put(const ChangeSet& changes, std::string& replies);

  /// Writes one parameter; `reply` becomes the answer, untrimmed.
  bool put(const ParameterPath& name, const std::string& value, std::string& reply);

  /// Makes the daemon act on the written values; `reply` becomes the answer, untrimmed, and is
  /// untouched if the command could not be sent.
  bool apply(std::string& reply);

  /// Makes the written values permanent; `reply` as for `apply`.
  bool save(std::string& reply);

  /// "Ready", the transport's failure, or "No socket". For callers besides this program.
  [[nodiscard]] std::string statusText() const;

 private:
  bool execute(std::string request, std::string& reply);

  std::unique_ptr<UdsConnection> connection;
};
