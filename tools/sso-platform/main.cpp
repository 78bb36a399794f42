// sso-platform: the administration tool of the device platform.
//   sso-platform [--root DIR] GROUP COMMAND [ARGS...]
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
    &VconfGroup, &SsGroup, &FeatureGroup, &AppGroup, &PkgGroup,
};

void PrintHelp(std::FILE *out)
{
    std::fprintf(out,
                 "Usage: %s [--root DIR] GROUP COMMAND [ARGS...]\n"
                 "\n"
                 "Administers the state of the device platform kept under the platform root.\n"
                 "\n"
                 "Global options (before GROUP):\n"
                 "  --root DIR    Use DIR as the platform root (now: %s;\n"
                 "                the default comes from $SSO_PLATFORM_ROOT)\n"
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
                 "  %s app add org.orvex.account.signin --exec /usr/bin/signin-ui\n",
                 kProgram, kProgram, kProgram, kProgram, kProgram, kProgram);
}

void SetRoot(const std::string &dir)
{
    if (dir.empty())
        throw UsageError("--root needs a directory");
    // Set before anything reads the root, so every library sees it.
    if (setenv("SSO_PLATFORM_ROOT", dir.c_str(), 1) != 0)
        throw Failure("cannot set the platform root: " + std::string(std::strerror(errno)));
}

int Run(const std::vector<std::string> &args)
{
    std::size_t i = 0;
    for (; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (arg == "--help" || arg == "-h") {
            PrintHelp(stdout);
            return kExitOk;
        }
        if (arg == "--version") {
            std::printf("%s %s\n", kProgram, SSO_VERSION);
            return kExitOk;
        }
        if (arg == "--root") {
            if (i + 1 >= args.size())
                throw UsageError("--root needs a directory");
            SetRoot(args[++i]);
        } else if (arg.compare(0, 7, "--root=") == 0) {
            SetRoot(arg.substr(7));
        } else if (!arg.empty() && arg[0] == '-') {
            throw UsageError("unknown option '" + arg + "' (see '" + kProgram + " --help')");
        } else {
            break;
        }
    }
    if (i >= args.size())
        throw UsageError(std::string("missing command group (see '") + kProgram + " --help')");
    if (args[i] == PkgGroup().name) // collects its repeated --app itself
        return RunPkgGroup(std::vector<std::string>(args.begin() + i + 1, args.end()));
    for (auto group : kGroups)
        if (args[i] == group().name)
            return RunGroup(group(), std::vector<std::string>(args.begin() + i + 1, args.end()));
    throw UsageError("unknown command group '" + args[i] + "' (see '" + kProgram + " --help')");
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return Run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const UsageError &e) {
        std::fprintf(stderr, "%s: %s\n", kProgram, e.what());
        return kExitUsage;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s: %s\n", kProgram, e.what());
        return kExitFailure;
    }
}
