#pragma once

#include <string>

#include "simulator/parameter_tree.h"

/// Serves `tree` to any number of clients at a time on the Unix-domain socket `path`, until SIGINT
/// or SIGTERM; then removes the socket, if it is still its own.
///
/// Writes "Listening on PATH" to standard output once clients can connect, and with `verbose` the
/// dialogues, each client under its number, to standard error. Replaces an abandoned socket. Throws
/// `std::runtime_error` if it cannot listen at `path`, and leaves a live daemon's socket or any
/// other file there alone.
void serve(ParameterTree& tree, const std::string& path, bool verbose);
