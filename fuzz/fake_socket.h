#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The daemon of a fuzz target: it stands in for the socket calls of the process, which the linker
/// leads here. Where its input ends, every receive fails with a reset.
namespace fake_socket {

/// Replies come from these bytes as they are, in pieces whose sizes they choose too.
void serveBytes(const std::uint8_t* data, std::size_t size);

/// Each request is answered with the next line of these bytes as its value.
void serveLines(const std::uint8_t* data, std::size_t size);

/// The next line of what is served.
std::string nextLine();

}  // namespace fake_socket
