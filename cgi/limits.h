#pragma once

#include <string>

/// The limits that a script sets for one request, if the program is that script's interpreter.
/// Without `apply` nothing is limited, and writes take no turns.
class Limits {
 public:
  /// Puts the settings of `script` in force, each a line "NAME = NUMBER" among comments and empty
  /// lines. They limit this process and the child of a write, not the web server. From here on,
  /// SIGTERM and SIGHUP are ignored, so that nothing but a limit ends a request.
  ///
  /// Throws `std::runtime_error`, with the number of the line and never its text, for a line that
  /// is no setting or that the system refuses, and for a script that cannot be read. The lines
  /// before it are in force then.
  void apply(const char* script);

  /// Waits until no other program of the script is in the middle of a write. The turn ends with
  /// this process. False, without a turn, if the time limit ends the wait or there is no lock to be
  /// had.
  [[nodiscard]] bool takeTurn();

  /// For the process that applies and saves after the answer to a write: from here on, time ends it
  /// rather than interrupts it, as an interrupted apply would pass for a finished one. A child gets
  /// its own time limit, and leaves the turn to the process that answers.
  void beginApply(bool isChild) const;

 private:
  bool set(const std::string& name, unsigned number);

  const char* path = nullptr;
  int turn = -1;
  unsigned childSeconds = 0;
};
