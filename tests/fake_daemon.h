#pragma once

#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

using Tree = std::map<std::string, std::string>;
using Lines = std::vector<std::string>;

/// What goes out for one request, byte for byte; with `gone`, the connection is then reset.
struct Answer {
  std::string bytes;
  bool gone = false;
};

/// Answers the greeting (asked for with an empty line) and every request line.
using Answers = std::function<Answer(const std::string& line)>;

/// The usual answers from a tree of values; `others` holds those to "put", "apply" and "save".
Answers answersFrom(Tree tree, Tree others = {});

/// `answers`, until the daemon goes away at that exchange; the greeting is exchange 0.
Answers goneAt(std::size_t exchange, Answers answers);

/// Serves one client on the daemon's socket with canned answers, and records what it is asked.
class FakeDaemon {
 public:
  /// Sends in pieces of that many bytes, each only when the one before has been read; 0 is all.
  explicit FakeDaemon(Answers theAnswers, std::size_t thePiece = 0);
  ~FakeDaemon();

  /// The request lines, without their terminators, once the client or the daemon has gone.
  Lines requests();

 private:
  void serve();
  bool answer(int client, const std::string& line);

  Answers answers;
  std::size_t piece;
  int listener;
  Lines lines;
  std::thread server;
};
