#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// The appliance's parameters, kept in a text file.
///
/// Each parameter has a line: its path, blanks and its value, both as `WordSplitter` takes words,
/// so that a quoted value may run over several lines. Lines that are empty or begin with a '#' are
/// comments. No value holds the prompt text, which would cut the daemon's reply short.
class ParameterTree {
 public:
  /// Throws `std::runtime_error`: "FILE:LINE: what is wrong", with the line on which the parameter
  /// begins, or "FILE: why" for a file that cannot be read.
  explicit ParameterTree(const std::string& fileName);

  /// The value, or null for a path that the tree lacks. Good until that value is replaced.
  const std::string* get(const std::string& path) const;

  /// Replaces a value, in memory only. Returns nothing, or why it has changed nothing.
  std::string_view put(const std::string& path, const std::string& value);

  /// Writes the tree, comments and order as they were, to a new file of the same mode that replaces
  /// the old one: a crash leaves one of the two, whole. Throws `std::system_error` on failure. The
  /// old file is then untouched, unless all that failed is the sync of its folder.
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
