#pragma once

#include <string>

#include "simulator/parameter_tree.h"

/// Serves `tree` to any number of clients at a time on the Unix-domain socket `path`, until SIGINT
/// or SIGTERM; then removes the socket, if it is still its own.
///
/// Writes "Listening on PATH" to standard output once clients can connect, and with `verbose` the
/// dialogues, each client under its number, to standard error. Replaces a socket that nobody
/// listens on any more. Throws `std::runtime_error` when a live daemon or something that is not a
/// socket is at `path`, neither of which it touches, or when it cannot listen there.
void serve(ParameterTree& tree, const std::string& path, bool verbose);
