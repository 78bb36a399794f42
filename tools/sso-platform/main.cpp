// sso-platform: the administration tool of the device platform.
//   sso-platform [--root DIR] [--json] GROUP COMMAND [ARGS...]
// The global options may stand anywhere on the line before a "--", as in
// ssoctl and sso-simulator.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "sso_platform_common.h"

#ifndef SSO_VERSION
#define SSO_VERSION "unknown"
#endif

namespace {

using namespace ssoplatform;

// Every command group, in the order the help lists them. A new group adds its
// accessor here.
const Group &(*const kGroups[])() = {
    &VconfGroup, &SsGroup, &FeatureGroup, &AppGroup, &PkgGroup, &LogGroup,
};

void PrintHelp(std::FILE *out)
{
    std::fprintf(out,
                 "Usage: %s [--root DIR] [--json] GROUP COMMAND [ARGS...]\n"
                 "\n"
                 "Administers the state of the device platform kept under the platform root.\n"
                 "\n"
                 "Global options (anywhere on the line, before a \"--\"):\n"
                 "  --root DIR    Use DIR as the platform root (now: %s;\n"
                 "                the default comes from $SSO_PLATFORM_ROOT)\n"
                 "  --json        Commands that print data print one JSON document a line\n"
                 "  -h, --help    Show this help and exit\n"
                 "  --version     Show the version and exit\n"
                 "\n"
                 "Groups:\n",
                 kProgram, sso_platform_root());
    for (auto group : kGroups)
        std::fprintf(out, "  %-12s  %s\n", group().name, group().summary);
    std::fprintf(out,
                 "\n"
                 "Run '%s GROUP --help' for the commands of a group.\n"
                 "\n"
                 "Examples:\n"
                 "  %s vconf set db/sso/login_status 1 --type int\n"
                 "  %s --root /tmp/device vconf get db/sso/login_status\n"
                 "  %s ss put sso/accounts accounts.json\n"
                 "  %s feature set com.veltra/featureconf/account.signin_mandatory true\n"
                 "  %s app add org.orvex.account.signin --exec /usr/bin/signin-ui\n"
                 "  %s log --tag SSOAPIClient --priority error --follow\n"
                 "\n"
                 "Exit status: 0 ok, 1 failure, 2 bad usage.\n",
                 kProgram, kProgram, kProgram, kProgram, kProgram, kProgram, kProgram);
}

void SetRoot(const std::string &dir)
{
    if (dir.empty())
        throw UsageError("--root needs a directory");
    // Set before anything reads the root, so every library sees it.
    if (setenv("SSO_PLATFORM_ROOT", dir.c_str(), 1) != 0)
        throw Failure("cannot set the platform root: " + std::string(std::strerror(errno)));
}

// Takes the global options out of args, wherever they stand before a "--".
// Returns true when --help or --version was answered.
bool TakeGlobalOptions(std::vector<std::string> &args, bool &help)
{
    std::vector<std::string> rest;
    bool options_done = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (options_done) {
            rest.push_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            rest.push_back(arg);
        } else if (arg == "--root") {
            if (i + 1 >= args.size())
                throw UsageError("--root needs a directory");
            SetRoot(args[++i]);
        } else if (arg.compare(0, 7, "--root=") == 0) {
            SetRoot(arg.substr(7));
        } else if (arg == "--json") {
            SetJsonOutput(true);
        } else if (arg == "--version") {
            std::printf("%s %s\n", kProgram, SSO_VERSION);
            return true;
        } else if ((arg == "--help" || arg == "-h") && rest.empty()) {
            help = true;
        } else {
            rest.push_back(arg);
        }
    }
    args = rest;
    return false;
}

int Run(std::vector<std::string> args)
{
    bool help = false;
    if (TakeGlobalOptions(args, help))
        return kExitOk;
    if (help || args.empty()) {
        if (!help)
            throw UsageError(std::string("missing command group (see '") + kProgram + " --help')");
        PrintHelp(stdout);
        return kExitOk;
    }
    if (args[0].size() > 1 && args[0][0] == '-')
        throw UsageError("unknown option '" + args[0] + "' (see '" + kProgram + " --help')");
    if (args[0] == PkgGroup().name) // collects its repeated --app itself
        return RunPkgGroup(std::vector<std::string>(args.begin() + 1, args.end()));
    // "log" is short for its one command, "log show".
    if (args[0] == LogGroup().name && (args.size() < 2 || args[1] != "show"))
        args.insert(args.begin() + 1, "show");
    for (auto group : kGroups)
        if (args[0] == group().name)
            return RunGroup(group(), std::vector<std::string>(args.begin() + 1, args.end()));
    throw UsageError("unknown command group '" + args[0] + "' (see '" + kProgram + " --help')");
}

} // namespace

int main(int argc, char **argv)
{
    return ssotools::GuardMain(
        kProgram, [&] { return Run(std::vector<std::string>(argv + 1, argv + argc)); });
}
