#include "simulator/session.h"

#include <iostream>
#include <utility>

#include "simulator/commands.h"

static constexpr std::size_t longestRequest = 1U << 20U;

Session::Session(asio::local::stream_protocol::socket connection, ParameterTree& parameters,
                 unsigned long clientNumber)
    : socket(std::move(connection)), tree(parameters), number(clientNumber) {}

void Session::start() { reply("Simulated appliance"); }

void Session::receive() {
  socket.async_read_some(asio::buffer(buffer), [self = shared_from_this()](
                                                   const std::error_code& error, std::size_t size) {
    if (error) return self->log("left: ", error.message());
    self->unread = {self->buffer.data(), size};
    self->log("> ", self->unread);
    self->serve();
  });
}

/// Answers the next whole request in `unread`; if there is none, receives more.
void Session::serve() {
  while (!unread.empty()) {
    const char byte = unread.front();
    unread.remove_prefix(1);
    if (!request.add(byte) && !endsOpenQuote(byte)) continue;
    std::string text(request.error());
    if (text.empty()) text = answer(tree, request.words());
    request.clear();
    return reply(std::move(text));
  }
  if (request.size() > longestRequest) return log("dropped: ", "request too long");
  receive();
}

/// Whether the client waits for the answer to a request with an open quote.
bool Session::endsOpenQuote(char byte) {
  std::error_code unknown;
  return byte == requestTerminator && request.quoteIsOpen() && unread.empty() &&
         socket.available(unknown) == 0;
}

void Session::reply(std::string text) {
  outgoing = std::move(text);
  if (!outgoing.empty()) outgoing += "\r\n";
  outgoing += prompt;
  log("< ", outgoing);
  asio::async_write(socket, asio::buffer(outgoing),
                    [self = shared_from_this()](const std::error_code& error, std::size_t) {
                      if (error) return self->log("left: ", error.message());
                      self->serve();
                    });
}

/// One line on standard error, with control characters as ^M and the like.
void Session::log(const char* direction, std::string_view text) const {
  if (number == 0) return;
  std::string line = std::to_string(number) + direction;
  for (const char byte : text) {
    const auto code = static_cast<unsigned char>(byte);
    const bool isControl = code < 0x20 || code == 0x7f;
    if (isControl) line += '^';
    line += isControl ? static_cast<char>(code ^ 0x40U) : byte;
  }
  std::cerr << line + '\n';
}
