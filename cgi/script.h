#pragma once

#include <string>
#include <vector>

/// The script with this program as its interpreter: it sets the limits of one request, and its lock
/// is the turn of a write. Until `open` there is no script: nothing is limited, everybody may
/// write, and writes take no turns.
class Script {
 public:
  /// Opens the script, until this process ends, and puts its settings in force. A setting is a line
  /// "NAME = NUMBER" or "writer = USER"; empty lines and comments do not count. The limits hold for
  /// this process and the child of a write, not for the web server. From here on, SIGTERM and
  /// SIGHUP are ignored: only a limit ends a request.
  ///
  /// Throws `std::runtime_error` for a line without a setting, a setting refused by the system, and
  /// an unreadable script. The text names the line by its number and never quotes it. The lines
  /// before it are in force then.
  void open(const char* path);

  /// Whether the web server's user may write: one of the script's writers, or anybody if it names
  /// none.
  [[nodiscard]] bool mayWrite() const;

  /// Logs who writes.
  void logWrite() const;

  /// Waits until no other program of the script is in the middle of a write. The turn ends with
  /// this process. False, without a turn, if the time limit ends the wait or the script cannot be
  /// locked.
  [[nodiscard]] bool takeTurn() const;

  /// In the child of a write: leaves the turn to the parent. Call it before the child can block.
  void leaveTurn() const;

  /// In the child of a write: starts the child's own time limit, which ends it.
  void limitChild() const;

  /// For a write without a child: from here on the time limit ends this process and interrupts no
  /// call. After an interrupted apply, the log would say that it has finished.
  void endAtTimeLimit() const;

 private:
  bool apply(std::string line);
  bool limit(const std::string& name, unsigned number);

  int fd = -1;
  unsigned childSeconds = 0;
  std::vector<std::string> writers;
};
