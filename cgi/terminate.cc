#include <cstdlib>

// Replaces the C++ library's handler. That one prints the name of the uncaught exception, and needs
// the whole demangler for it: 45 KB of a static program.
namespace __gnu_cxx {  // NOLINT(cert-dcl58-cpp)
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
[[noreturn]] void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx
