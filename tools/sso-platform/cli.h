// The command framework of sso-platform: groups of subcommands described by
// tables, a shared option parser and help printer. A new group is one source
// file defining its Group plus one entry in the table in main.cpp.
#pragma once

#include <cstddef>
#include <cstdio>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tool_cli.h"

namespace ssoplatform {

inline constexpr const char *kProgram = "sso-platform";

using ssotools::Failure;
using ssotools::kExitFailure;
using ssotools::kExitOk;
using ssotools::kExitUsage;
using ssotools::UsageError;

// What the tool says about one result of a platform library: a usage error
// (the caller's input) or a failure. "%s" in text stands for the key, item,
// package or application the call was about.
struct ResultText {
    int rc;
    bool usage;
    std::string text;
};

// Returns when rc is ok. Otherwise throws what texts say about rc, or a
// Failure with fallback ("%s" the subject, "%d" the result) for any other.
void CheckResult(int rc, int ok, const std::string &subject, const std::vector<ResultText> &texts,
                 const std::string &fallback);

struct Option {
    const char *name;       // "--type"
    const char *value_name; // "TYPE", or nullptr for a flag
    const char *help;
};

// What a handler receives: the positional arguments in order and the options
// given, by name ("--type" -> "int"; flags map to "").
struct Args {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;

    bool Has(const std::string &name) const { return options.count(name) != 0; }
    std::string Get(const std::string &name, const std::string &fallback = "") const
    {
        auto it = options.find(name);
        return it == options.end() ? fallback : it->second;
    }
};

inline constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

struct Command {
    const char *name;
    const char *synopsis; // after "sso-platform GROUP NAME", e.g. "KEY VALUE --type TYPE"
    const char *summary;  // one line for the group's help
    const char *help;     // paragraphs and examples for the command's help
    std::vector<Option> options;
    std::size_t min_args;
    std::size_t max_args; // kUnlimited for any number
    int (*run)(const Args &args);
};

struct Group {
    const char *name;
    const char *summary;
    const char *help;
    std::vector<Command> commands;
    bool needs_root = true; // its commands work on the platform root
};

// The groups, one function a group; each lives in its own cmd_<group>.cpp.
const Group &VconfGroup();
const Group &SsGroup();
const Group &FeatureGroup();
const Group &AppGroup();
// The pkg group takes a repeatable option; run it through RunPkgGroup.
const Group &PkgGroup();
int RunPkgGroup(const std::vector<std::string> &argv);
const Group &LogGroup();

// The global --json option: commands that print data print one JSON document
// instead (docs/json-output.md).
bool JsonOutput();
void SetJsonOutput(bool on);

// Throws Failure, with what to do, when the platform root does not exist: a
// mistyped root would otherwise read as empty and writes would scatter state
// in a new directory.
void RequirePlatformRoot();

// Parses argv (after the group name) against the group's tables and runs the
// chosen command. Throws UsageError or Failure; returns the exit status.
int RunGroup(const Group &group, const std::vector<std::string> &argv);

void PrintGroupHelp(const Group &group, std::FILE *out);
void PrintCommandHelp(const Group &group, const Command &command, std::FILE *out);

} // namespace ssoplatform
