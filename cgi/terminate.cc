#include <cstdlib>

// Takes the place of the C++ library's own handler, which names the exception that nobody caught
// and brings the whole demangler along for that: 45 KB of a static program.
namespace __gnu_cxx {  // NOLINT(cert-dcl58-cpp)
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
[[noreturn]] void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx
