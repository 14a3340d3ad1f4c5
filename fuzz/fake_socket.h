#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The daemon of a fuzz target: replaces the socket calls of the process, by the linker's --wrap. At
// the end of its bytes, every receive fails with a reset.

/// These bytes are the replies. They also choose the pieces: a length, then as many bytes.
void serveBytes(const std::uint8_t* data, std::size_t size);

/// Each request is answered with the next line of these bytes as its value.
void serveLines(const std::uint8_t* data, std::size_t size);

/// Takes the next line of the bytes.
std::string nextLine();
