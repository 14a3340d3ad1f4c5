#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

using Strings = std::vector<std::string>;
using Tree = std::map<std::string, std::string>;

// The tests write parameters short, several in one text: "net:ip_addr=10.0.0.1 enc:aenc3/codec".
// Before the colon stands net, enc, venc1, venc2, in, out, mux1, mux2, or stream 1: rtsp, rtmp; or
// all with a whole path.

Tree tree(const std::string& text);
Strings paths(const std::string& text);

/// A configuration in accord with every rule: a write changes the named parameter alone.
Tree applianceTree();

/// The pinned ones of these parameters.
Tree fixedSettings();

/// A socket bound to a path. What is there is removed.
int boundSocket(int type, const std::string& path);

/// The bytes that answer a request line, or, for an empty one, greet the client. Where they do not
/// end with the prompt, the daemon goes away: the connection is reset.
using Answers = std::function<std::string(const std::string& line)>;

/// The usual answers from a tree of values; `others` holds those to "put", "apply" and "save".
Answers answersFrom(Tree tree, Tree others = {});

/// Serves one client on the daemon's socket with canned answers, and records its requests.
class FakeDaemon {
 public:
  /// Sends in pieces of so many bytes, each after the one before has been read; 0 is all.
  explicit FakeDaemon(Answers theAnswers, std::size_t thePiece = 0);
  ~FakeDaemon();

  /// The connected process; for the answers.
  [[nodiscard]] pid_t client() const { return process; }

  /// The requests, a line feed for each terminator, once the client or the daemon has gone.
  std::string requests();

 private:
  void serve();

  Answers answers;
  std::size_t piece;
  int listener;
  pid_t process = -1;
  std::string lines;
  std::thread server;
};
