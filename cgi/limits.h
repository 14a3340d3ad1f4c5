#pragma once

#include <string>

/// The limits of one request, from the script with this program as its interpreter. Without `apply`
/// nothing is limited, and writes take no turns.
class Limits {
 public:
  /// Puts the settings of `script` in force, each a line "NAME = NUMBER" among comments and empty
  /// lines. They limit this process and the child of a write, not the web server. From here on,
  /// SIGTERM and SIGHUP are ignored: only a limit ends a request.
  ///
  /// Throws `std::runtime_error` for a line without a setting, a setting refused by the system, and
  /// an unreadable script. The text names the line by its number and never quotes it. The lines
  /// before it are in force then.
  void apply(const char* script);

  /// Waits until no other program of the script is in the middle of a write. The turn ends with
  /// this process. False, without a turn, if the time limit ends the wait or there is no lock to be
  /// had.
  [[nodiscard]] bool takeTurn();

  /// Call this after the answer to a write, before apply and save. From here on the time limit ends
  /// the process: an interrupted apply would pass for a finished one. A child gets a time limit of
  /// its own and leaves the turn to its parent.
  void beginApply(bool isChild) const;

 private:
  bool set(const std::string& name, unsigned number);

  const char* path = nullptr;
  int turn = -1;
  unsigned childSeconds = 0;
};
