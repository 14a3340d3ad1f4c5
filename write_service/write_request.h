#pragma once

#include <string>

#include "cgi/script.h"
#include "write_service/change_set.h"

/// Stores `value` for `name` together with its dependent parameters, answers on standard output,
/// and has a detached child apply and save the configuration. The child gets the limit of `script`
/// and leaves the turn of the write to the calling process. With a script, the log tells who
/// writes.
///
/// Answers 500 and returns when the daemon cannot be reached. Otherwise answers with one line of
/// JSON, or with 500 if a put fails. Then the calling process ends with exit status 0, and only its
/// child returns. If it cannot fork, the calling process returns. Throws, with nothing written,
/// when `name` or `value` would break the request line or lacks the number expected by a rule.
void handleWriteRequest(ParameterPath name, std::string value, const Script& script = {});
