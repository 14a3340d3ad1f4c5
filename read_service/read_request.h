#pragma once

#include <string>

/// Answers a read request on standard output: a JSON object with a member for each of the
/// comma-separated `names` that the daemon holds, in their order, and "invalid" with the rest.
/// Writes 500 when the daemon cannot be reached, and otherwise 400 when `names` is empty.
void handleReadRequest(std::string names);
