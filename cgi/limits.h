#pragma once

/// Puts in force what the lines of `script` set, each "NAME = NUMBER", a comment or empty: limits
/// of this process and again of the child that it leaves, not of the web server. From here on,
/// SIGTERM and SIGHUP are ignored, so that nothing but a limit ends a request.
///
/// Throws `std::runtime_error` for a script that cannot be read, and for a line that is no setting
/// or that the system refuses; the lines before it are in force then.
void applyLimits(const char* script);
