#pragma once

#include <array>
#include <asio.hpp>
#include <memory>
#include <string>
#include <string_view>

#include "config_client/protocol.h"
#include "simulator/parameter_tree.h"
#include "simulator/words.h"

/// The dialogue with one client: the greeting, then a reply to each request.
///
/// Reads no request before the reply to the last one has gone out: a client that never reads holds
/// the memory of one reply. Its handlers keep it alive until the client leaves or sends a request
/// of more than a mebibyte.
class Session : public std::enable_shared_from_this<Session> {
 public:
  /// With `clientNumber` 0 the dialogue is not written to standard error.
  Session(asio::local::stream_protocol::socket connection, ParameterTree& parameters,
          unsigned long clientNumber);

  void start();

 private:
  void receive();
  void serve();
  void reply(std::string text);
  bool endsOpenQuote(char byte);
  void log(const char* direction, std::string_view text) const;

  asio::local::stream_protocol::socket socket;
  ParameterTree& tree;
  const unsigned long number;
  WordSplitter request{requestTerminator};
  std::array<char, 16384> buffer;
  std::string_view unread;  ///< of `buffer`
  std::string outgoing;
};
