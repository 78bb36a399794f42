// Exit codes and errors shared by the command-line modes.
#pragma once

#include <stdexcept>

namespace ssosim {

inline constexpr const char *kProgram = "sso-simulator";

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1; // simulator not running, D-Bus error
inline constexpr int kExitUsage = 2;   // bad command line

// Malformed command line; the message says what and where to get help.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A well-formed command that failed.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace ssosim
