// Exit codes, errors and the main() guard shared by the command-line tools.
#pragma once

#include <cstdio>
#include <cstddef>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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

// One option word of a command line: "--name=value" carries its value inline.
struct OptionWord {
    std::string name;
    std::optional<std::string> inline_value;
};

// Walks args from first: an operand (a word looksLikeOption refuses, or any
// word after "--") goes to operand(word); an option word to
// option(word, next), next being the following word or nullptr at the end;
// option returns true when it took next as its value.
template <typename LooksLikeOption, typename Operand, typename Option>
void WalkCommandLine(const std::vector<std::string> &args, std::size_t first,
                     LooksLikeOption &&looksLikeOption, Operand &&operand, Option &&option)
{
    bool options_done = false;
    for (std::size_t i = first; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (options_done || !looksLikeOption(arg)) {
            operand(arg);
        } else if (arg == "--") {
            options_done = true;
        } else {
            OptionWord word{arg, std::nullopt};
            const std::size_t eq = arg.find('=');
            if (arg.compare(0, 2, "--") == 0 && eq != std::string::npos) {
                word.name = arg.substr(0, eq);
                word.inline_value = arg.substr(eq + 1);
            }
            if (option(word, i + 1 < args.size() ? &args[i + 1] : nullptr))
                ++i;
        }
    }
}

} // namespace ssotools
