// Exit codes, errors and the main() guard shared by the command-line tools.
#pragma once

#include <cstdio>
#include <exception>
#include <stdexcept>

namespace ssotools {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1; // the command failed (service not running, D-Bus error)
inline constexpr int kExitUsage = 2;   // bad command line

// Malformed command line: unknown command, missing argument, malformed value.
// The message says what and where to get help.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A well-formed command that failed.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Runs a tool's body and turns what it throws into "<program>: <what>" on
// stderr and the exit code: kExitUsage for a UsageError, kExitFailure else.
template <typename Body> int GuardMain(const char *program, Body &&body)
{
    try {
        return body();
    } catch (const UsageError &e) {
        std::fprintf(stderr, "%s: %s\n", program, e.what());
        return kExitUsage;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s: %s\n", program, e.what());
        return kExitFailure;
    }
}

} // namespace ssotools
