#pragma once

#include <map>
#include <string>

/// A parameter's name: a slash-separated path in the daemon's configuration tree.
using ParameterPath = std::string;

/// New values by parameter, in the order of the puts: ascending by the path's bytes.
using ChangeSet = std::map<ParameterPath, std::string>;
