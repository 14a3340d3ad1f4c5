#pragma once

#include <string>

/// Answers a read request on standard output: a JSON object with a member for each known name of
/// the comma-separated `names`, in their order, and "invalid" with the rest. Writes 500 when the
/// daemon cannot be reached, and otherwise 400 when `names` is empty.
void handleReadRequest(std::string names);
