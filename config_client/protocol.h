#pragma once

#include <cstddef>
#include <string_view>

/// The socket of the configuration daemon.
inline constexpr char socketPath[] = "/tmp/cffs_uds";

/// Ends the greeting and every reply of the daemon.
inline constexpr std::string_view prompt = "/> ";

/// Ends every request, alone, with no line feed.
inline constexpr char requestTerminator = '\r';

/// The daemon's whole answer about an unknown parameter.
inline constexpr std::string_view noSuchParameter = "No such file or directory";
