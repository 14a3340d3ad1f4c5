#pragma once

#include <string>

/// Each removes white space, as `isspace` knows it, from `text` in place.
void trimRight(std::string& text);
void trimLeft(std::string& text);
void trim(std::string& text);
