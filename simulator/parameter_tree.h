#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// The appliance's parameters, kept in a text file.
///
/// Each parameter has a line: its path, blanks and its value, both as `WordSplitter` takes words,
/// so a quoted value may run over several lines. Empty lines and lines with a leading '#' are
/// comments. No value holds the prompt text: it would cut the daemon's reply short.
class ParameterTree {
 public:
  /// Throws `std::runtime_error`: "FILE:LINE: REASON" with the first line of a malformed parameter,
  /// or "FILE: REASON" for an unreadable file.
  explicit ParameterTree(const std::string& fileName);

  /// The value, or null for an unknown path. Good until the value is replaced.
  const std::string* get(const std::string& path) const;

  /// Replaces a value, in memory only. Returns the reason if it has changed nothing.
  std::string_view put(const std::string& path, const std::string& value);

  /// Writes the tree, with its comments and in its order, to a new file of the same mode, then
  /// replaces the old file: a crash leaves one of the two, whole. Throws `std::system_error` on
  /// failure. The old file is then untouched, unless only the sync of its folder failed.
  void save() const;

 private:
  struct Parameter {
    std::string comments;  ///< the lines above it, as they stood
    std::string path;
    std::string value;
  };

  std::string_view readParameter(const std::string& text, std::size_t& position);

  std::string file;
  std::vector<Parameter> parameters;
  std::unordered_map<std::string, std::size_t> positions;
  std::string lastComments;
};
