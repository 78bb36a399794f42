// sso-simulator: a stand-in for the SSO service on the D-Bus system bus.
//   sso-simulator [run]               the daemon
//   sso-simulator ctl COMMAND ...     script a running daemon
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "contract.h"
#include "control_api.h"
#include "ctl.h"
#include "daemon.h"

#ifndef SSO_VERSION
#define SSO_VERSION "unknown"
#endif

namespace {

using namespace ssosim;

bool IsHelp(const std::string &arg)
{
    return arg == "--help" || arg == "-h";
}

void PrintHelp()
{
    std::printf(
        "Usage: %s [run]\n"
        "       %s ctl COMMAND [ARGS...]\n"
        "\n"
        "Stands in for the SSO service on the D-Bus system bus ($DBUS_SYSTEM_BUS_ADDRESS):\n"
        "owns %s, answers every request of the\n"
        "service interface, and delivers results to the requesting client. Tests script\n"
        "its behaviour per method over %s.\n"
        "\n"
        "Modes:\n"
        "  run      Run the daemon (the default). Prints \"ready\" once it serves.\n"
        "  ctl      Script and inspect a running daemon; see '%s ctl --help'.\n"
        "\n"
        "Options:\n"
        "  -h, --help   Show this help and exit\n"
        "  --version    Show the version and exit\n"
        "\n"
        "Examples:\n"
        "  %s &\n"
        "  %s ctl configure sso_request_access_token --payload AT-test\n"
        "  %s ctl journal\n"
        "  %s ctl quit\n",
        kProgram, kProgram, kServiceBusName, kControlInterface, kProgram, kProgram, kProgram,
        kProgram, kProgram);
}

void PrintRunHelp()
{
    std::printf(
        "Usage: %s run\n"
        "\n"
        "Runs the simulated SSO service on the system bus until SIGTERM, SIGINT or\n"
        "'%s ctl quit' (exit 0). Prints \"ready\" on stdout once the service and the\n"
        "control object answer. Exits 1 with a message when the bus cannot be reached\n"
        "or another process owns %s.\n"
        "\n"
        "Environment:\n"
        "  DBUS_SYSTEM_BUS_ADDRESS   the bus to serve on\n"
        "  SSO_PLATFORM_APP_ID       app id in the simulator's object name\n"
        "                            (default org.orvex.ssoservice)\n"
        "  SSO_PLATFORM_LOG, SSO_PLATFORM_LOG_LEVEL   where the log goes (tag SSOSimulator)\n"
        "\n"
        "Example:\n"
        "  SSO_PLATFORM_LOG=stderr SSO_PLATFORM_LOG_LEVEL=info %s run\n",
        kProgram, kProgram, kServiceBusName, kProgram);
}

int Run(const std::vector<std::string> &args)
{
    if (args.empty())
        return RunDaemon();
    const std::string &mode = args[0];
    if (IsHelp(mode)) {
        PrintHelp();
        return kExitOk;
    }
    if (mode == "--version") {
        std::printf("%s %s\n", kProgram, SSO_VERSION);
        return kExitOk;
    }
    if (mode == "run") {
        if (args.size() == 2 && IsHelp(args[1])) {
            PrintRunHelp();
            return kExitOk;
        }
        if (args.size() > 1)
            throw UsageError("run takes no arguments (see '" + std::string(kProgram) +
                             " run --help')");
        return RunDaemon();
    }
    if (mode == "ctl")
        return RunCtl(std::vector<std::string>(args.begin() + 1, args.end()));
    throw UsageError("unknown mode '" + mode + "' (see '" + std::string(kProgram) + " --help')");
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return Run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const UsageError &e) {
        std::fprintf(stderr, "%s: %s\n", kProgram, e.what());
        return kExitUsage;
    } catch (const Failure &e) {
        std::fprintf(stderr, "%s: %s\n", kProgram, e.what());
        return kExitFailure;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s: %s\n", kProgram, e.what());
        return kExitFailure;
    }
}
