#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Splits one line into words, a byte at a time.
///
/// Blanks separate words. A word with a leading double quote ends at the next one; both quotes are
/// dropped. It may be empty, and hold any other character, also line ends. Elsewhere a double quote
/// is an ordinary character.
class WordSplitter {
 public:
  /// A line ends at `lineEnd` outside quotes. Every other white space is a blank.
  explicit WordSplitter(char lineEnd) : end(lineEnd) {}

  /// Takes `byte`; true at the end of the line.
  bool add(char byte);

  [[nodiscard]] bool quoteIsOpen() const { return state == State::Quoted; }

  /// The fault in the quoting of a complete line, or nothing.
  [[nodiscard]] std::string_view error() const;

  /// Meaningful only without an error.
  [[nodiscard]] const std::vector<std::string>& words() const { return found; }

  /// The bytes of the line so far.
  [[nodiscard]] std::size_t size() const { return count; }

  /// Makes ready for the next line.
  void clear();

 private:
  enum class State { Between, Plain, Quoted, Closed, Malformed };

  char end;
  State state = State::Between;
  std::size_t count = 0;
  std::vector<std::string> found;
};

/// `word`, in quotes if it needs them to be one word for a `WordSplitter`. It must come from a
/// `WordSplitter`: a word with blanks and a quote cannot be written.
std::string quoteIfNeeded(const std::string& word);
