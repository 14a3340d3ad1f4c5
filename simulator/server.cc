#include "simulator/server.h"

#include <sys/stat.h>
#include <unistd.h>

#include <asio.hpp>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include "simulator/session.h"

using Protocol = asio::local::stream_protocol;

/// The status of the file at `path`, links not followed, or nothing.
static std::optional<struct stat> statusOf(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

/// Removes an abandoned socket at `path`. Throws if anything else is there.
static void removeStaleSocket(asio::io_context& context, const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  if (!status) return;
  if (!S_ISSOCK(status->st_mode)) throw std::runtime_error(path + ": exists and is not a socket");
  Protocol::socket probe(context, Protocol());
  probe.non_blocking(true);
  std::error_code error;
  std::ignore = probe.connect(path, error);
  const bool queueIsFull = error == asio::error::no_buffer_space;
  if (!error || queueIsFull) throw std::runtime_error(path + ": a daemon already listens there");
  if (error != asio::error::connection_refused) throw std::system_error(error, path);
  if (unlink(path.c_str()) != 0) throw std::system_error(errno, std::generic_category(), path);
}

static Protocol::acceptor listenAt(asio::io_context& context, const std::string& path) {
  // An empty path would bind to a random name.
  if (path.empty()) throw std::runtime_error("The path of the socket is empty");
  try {
    const Protocol::endpoint endpoint(path);
    removeStaleSocket(context, path);
    return {context, endpoint};
  } catch (const std::system_error& e) {
    throw std::runtime_error(path + ": cannot listen there: " + e.code().message());
  }
}

namespace {

class Listener {
 public:
  Listener(asio::io_context& context, ParameterTree& parameters, const std::string& path,
           bool verbose)
      : acceptor(listenAt(context, path)), pause(context), tree(parameters), isVerbose(verbose) {}

  void accept() {
    acceptor.async_accept([this](const std::error_code& error, Protocol::socket socket) {
      if (error) return acceptLater();
      ++clients;
      std::make_shared<Session>(std::move(socket), tree, isVerbose ? clients : 0)->start();
      accept();
    });
  }

 private:
  /// The process is probably out of descriptors: to try again at once would fail too.
  void acceptLater() {
    pause.expires_after(std::chrono::milliseconds(100));
    pause.async_wait([this](const std::error_code&) { accept(); });
  }

  Protocol::acceptor acceptor;
  asio::steady_timer pause;
  ParameterTree& tree;
  const bool isVerbose;
  unsigned long clients = 0;
};

}  // namespace

void serve(ParameterTree& tree, const std::string& path, bool verbose) {
  std::ignore = std::signal(SIGPIPE, SIG_IGN);  // for standard error; the sockets raise none
  asio::io_context context(1);
  asio::signal_set signals(context, SIGINT, SIGTERM);
  signals.async_wait([&context](const std::error_code&, int) { context.stop(); });
  Listener listener(context, tree, path, verbose);
  const std::optional<struct stat> own = statusOf(path);
  listener.accept();
  std::cout << "Listening on " << path << std::endl;
  context.run();

  const std::optional<struct stat> now = statusOf(path);
  if (own && now && own->st_dev == now->st_dev && own->st_ino == now->st_ino) unlink(path.c_str());
}
