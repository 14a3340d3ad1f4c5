#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Splits one line into words, a byte at a time.
///
/// Blanks separate words. A word with a leading double quote runs to the next one and is taken
/// without the two: it may be empty and hold anything else, line ends included. Elsewhere a double
/// quote is an ordinary character.
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

/// A spelling of `word` as a single word for every `WordSplitter`. Every word from a `WordSplitter`
/// has one.
std::string quoteIfNeeded(const std::string& word);
