#include "simulator/words.h"

#include <algorithm>

/// Unlike `isspace`, the same in every locale and for every sign of `char`.
static bool isBlank(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

bool WordSplitter::add(char byte) {
  ++count;
  if (state == State::Quoted) {
    if (byte != '"') {
      found.back() += byte;
    } else {
      state = State::Closed;
    }
    return false;
  }
  if (byte == end) return true;
  if (state == State::Malformed) return false;
  if (isBlank(byte)) {
    state = State::Between;
  } else if (state == State::Closed) {
    state = State::Malformed;
  } else if (state == State::Plain) {
    found.back() += byte;
  } else if (byte == '"') {
    found.emplace_back();
    state = State::Quoted;
  } else {
    found.emplace_back(1, byte);
    state = State::Plain;
  }
  return false;
}

std::string_view WordSplitter::error() const {
  if (state == State::Quoted) return "Unclosed quote";
  if (state == State::Malformed) return "Text directly after a closing quote";
  return {};
}

void WordSplitter::clear() {
  state = State::Between;
  count = 0;
  found.clear();
}

std::string quoteIfNeeded(const std::string& word) {
  if (!word.empty() && std::none_of(word.begin(), word.end(), isBlank)) return word;
  return '"' + word + '"';
}
