#pragma once

#include <string>
#include <vector>

#include "simulator/parameter_tree.h"

/// Carries out one request of the configuration dialogue and returns the text of the reply, without
/// line end or prompt; empty when there is nothing to say.
///
///   ls NAME         the value of a parameter
///   put NAME VALUE  stores a value at once, in memory
///   apply           nothing: there is no hardware
///   save            writes the tree to its file
///
/// An unknown parameter gives "No such file or directory"; any other failure gives one line with
/// its reason. No such line holds the prompt text.
std::string answer(ParameterTree& tree, const std::vector<std::string>& words);
