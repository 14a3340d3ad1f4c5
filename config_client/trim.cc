#include "config_client/trim.h"

#include <algorithm>
#include <cctype>

static bool isSolid(unsigned char c) { return std::isspace(c) == 0; }

void trimRight(std::string& text) {
  text.erase(std::find_if(text.rbegin(), text.rend(), isSolid).base(), text.end());
}

void trimLeft(std::string& text) {
  text.erase(text.begin(), std::find_if(text.begin(), text.end(), isSolid));
}

void trim(std::string& text) {
  trimRight(text);
  trimLeft(text);
}
