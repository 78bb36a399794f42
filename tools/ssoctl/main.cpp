// ssoctl: a command-line client of the SSO service built on libsso_api.
//
// The command line is parsed here against the table of commands
// (commands.cpp); each command lives in one of the commands_*.cpp files.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>

#include "ssoctl.h"

namespace ssoctl {
namespace {

#ifndef SSOCTL_VERSION
#define SSOCTL_VERSION "0"
#endif

const char *kGlobalOptions =
    "Global options (anywhere on the line):\n"
    "  --json          one JSON object per result on stdout\n"
    "  --show-secrets  do not mask tokens, codes, GUIDs and passwords\n"
    "  --timeout MS    how long to wait for a result (default 10000)\n"
    "  --help          this text (\"ssoctl <command> --help\" for a command)\n"
    "  --version       print the version\n"
    "\n"
    "Exit codes: 0 success, 1 refused or failed, 2 bad usage, 3 timed out.\n";

void PrintMainUsage()
{
    std::string text = "usage: ssoctl [global options] <command> [arguments] [options]\n";
    std::string group;
    for (const Command &c : Commands()) {
        if (group != c.group) {
            group = c.group;
            text += "\n" + group + ":\n";
        }
        std::string name = c.name;
        name.resize(std::max<size_t>(name.size() + 2, 24), ' ');
        text += "  " + name + c.summary + "\n";
    }
    text += "\n";
    text += kGlobalOptions;
    text += "Example: ssoctl token --app-id my.app --secret s3cr3t --scope profile\n";
    std::fputs(text.c_str(), stdout);
}

void PrintCommandUsage(const Command &c)
{
    std::string text = c.usage;
    text += "\nGlobal options: --json, --show-secrets, --timeout MS (\"ssoctl --help\").\n";
    std::fputs(text.c_str(), stdout);
}

// Hidden: which library functions each command reaches, one "command
// function" pair a line. The tests hold it against the public header.
void PrintFunctions()
{
    for (const Command &c : Commands())
        for (const std::string &f : c.functions)
            PrintLine(std::string(c.name) + " " + f);
}

int MainUsage(const std::string &message)
{
    std::fprintf(stderr, "ssoctl: %s\nTry \"ssoctl --help\".\n", message.c_str());
    return kExitUsage;
}

int Run(int argc, char **argv)
{
    Invocation inv;
    bool help = false;
    bool positional_only = false;
    std::vector<std::string> used_options;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        // Negative numbers are arguments, checked by their command.
        bool negative_number =
            arg.size() > 1 && arg[0] == '-' && std::isdigit(static_cast<unsigned char>(arg[1]));
        if (positional_only || negative_number || arg == "-" || arg.empty() || arg[0] != '-') {
            if (inv.command.empty())
                inv.command = arg;
            else
                inv.args.push_back(arg);
            continue;
        }
        if (arg == "--") {
            positional_only = true;
            continue;
        }
        std::string value;
        bool has_inline = false;
        size_t eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            has_inline = true;
        }
        auto take = [&](std::string *dest) -> bool {
            if (has_inline) {
                *dest = value;
                return true;
            }
            if (i + 1 >= argc)
                return false;
            *dest = argv[++i];
            return true;
        };
        bool takes_value = arg == "--timeout" || OptionTakesValue(arg);
        if (has_inline && !takes_value)
            return MainUsage("option " + arg + " takes no value");
        if (arg == "--help" || arg == "-h") {
            help = true;
        } else if (arg == "--version") {
            PrintLine(std::string("ssoctl ") + SSOCTL_VERSION);
            return kExitOk;
        } else if (arg == "--list-functions") {
            PrintFunctions();
            return kExitOk;
        } else if (arg == "--json") {
            inv.json = true;
        } else if (arg == "--show-secrets") {
            inv.show_secrets = true;
        } else if (arg == "--timeout") {
            std::string v;
            long ms = 0;
            if (!take(&v))
                return MainUsage("option --timeout needs a value");
            if (!ParseInt(v, 1, 3600000, &ms))
                return MainUsage("--timeout needs a number of milliseconds, got \"" + v + "\"");
            inv.timeout_ms = static_cast<int>(ms);
        } else if (IsKnownOption(arg)) {
            used_options.push_back(arg);
            if (takes_value) {
                std::string v;
                if (!take(&v))
                    return MainUsage("option " + arg + " needs a value");
                inv.values[arg] = v;
            } else {
                inv.flags.insert(arg);
            }
        } else {
            return MainUsage("unknown option " + arg);
        }
    }
    if (inv.command.empty()) {
        if (help) {
            PrintMainUsage();
            return kExitOk;
        }
        return MainUsage("no command given");
    }
    const Command *command = FindCommand(inv.command);
    if (command == nullptr)
        return MainUsage("unknown command " + inv.command);
    if (help) {
        PrintCommandUsage(*command);
        return kExitOk;
    }
    for (const std::string &option : used_options) {
        bool allowed = false;
        for (const std::string &o : command->options)
            allowed = allowed || o == option;
        if (!allowed)
            return UsageError(inv, "takes no option " + option);
    }
    if (inv.args.size() < command->min_args)
        return UsageError(inv, "missing argument");
    if (inv.args.size() > command->max_args)
        return UsageError(inv, "unexpected argument \"" + inv.args[command->max_args] + "\"");
    return command->run(inv);
}

} // namespace
} // namespace ssoctl

int main(int argc, char **argv)
{
    return ssoctl::Run(argc, argv);
}
