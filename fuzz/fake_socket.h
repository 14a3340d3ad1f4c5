#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The daemon of a fuzz target: stands in for the socket calls of the process, which the linker
// leads here. Where what it serves ends, every receive fails with a reset.

/// Replies come from these bytes as they are, in pieces whose sizes they choose too.
void serveBytes(const std::uint8_t* data, std::size_t size);

/// Each request is answered with the next line of these bytes as its value.
void serveLines(const std::uint8_t* data, std::size_t size);

/// Takes the next line of what is served.
std::string nextLine();
