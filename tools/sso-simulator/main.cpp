// sso-simulator: a stand-in for the SSO service on the D-Bus system bus.
//   sso-simulator [run] [OPTIONS]     the daemon
//   sso-simulator ctl COMMAND ...     script a running daemon
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "contract.h"
#include "control_api.h"
#include "ctl.h"
#include "daemon.h"
#include "result_codes.h"

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
        "Usage: %s [run] [--demo-accounts] [--seed N]\n"
        "       %s [--json] ctl COMMAND [ARGS...]\n"
        "\n"
        "Stands in for the SSO service on the D-Bus system bus ($DBUS_SYSTEM_BUS_ADDRESS):\n"
        "owns %s, answers every request of the\n"
        "service interface, and delivers results to the requesting client. Tests script\n"
        "its behaviour per method over %s.\n"
        "\n"
        "Modes:\n"
        "  run      Run the daemon (the default). Prints \"ready\" once it serves;\n"
        "           see '%s run --help' for its options.\n"
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
        "  %s run --demo-accounts --seed 7 &\n"
        "  %s ctl sign-in jamie.rivera@example.com\n"
        "  %s ctl quit\n",
        kProgram, kProgram, kServiceBusName, kControlInterface, kProgram, kProgram, kProgram,
        kProgram, kProgram, kProgram, kProgram, kProgram);
}

void PrintRunHelp()
{
    std::printf(
        "Usage: %s run [--demo-accounts] [--seed N] [--no-sender-check]\n"
        "\n"
        "Runs the simulated SSO service on the system bus until SIGTERM, SIGINT or\n"
        "'%s ctl quit' (exit 0). Prints \"ready\" on stdout once the service and the\n"
        "control object answer. Exits 1 with a message when the bus cannot be reached,\n"
        "another process owns %s, or the account state cannot be\n"
        "published.\n"
        "\n"
        "Before it is ready it publishes the signed-out state (no account signed in)\n"
        "to the settings store and secure storage under $SSO_PLATFORM_ROOT.\n"
        "\n"
        "Options:\n"
        "  --demo-accounts   Register three demo accounts (nobody signed in)\n"
        "  --seed N          Generate GUIDs, tokens and ids from seed N (0 to 4294967295),\n"
        "                    the same on every run\n"
        "  --no-sender-check Accept requests whose object name is not the sending\n"
        "                    process's (by default refused: the result would reach\n"
        "                    another client); for testing a client's own defences\n"
        "  -h, --help        Show this help and exit\n"
        "\n"
        "Environment:\n"
        "  DBUS_SYSTEM_BUS_ADDRESS   the bus to serve on\n"
        "  SSO_PLATFORM_APP_ID       app id in the simulator's object name\n"
        "                            (default org.orvex.ssoservice)\n"
        "  SSO_PLATFORM_LOG, SSO_PLATFORM_LOG_LEVEL   where the log goes (tag SSOSimulator)\n"
        "\n"
        "Examples:\n"
        "  SSO_PLATFORM_LOG=stderr SSO_PLATFORM_LOG_LEVEL=info %s run\n"
        "  %s run --demo-accounts --seed 42\n",
        kProgram, kProgram, kServiceBusName, kProgram, kProgram);
    std::printf("\n"
                "Results:\n"
                "  Unless a test scripts them, results come from the simulated state: tokens and\n"
                "  codes are issued to the signed-in account (see 'ctl issued'), account\n"
                "  requests sign in, add, switch and sign out, profile requests answer from the\n"
                "  signed-in account. A request refused by the state gets one of these result\n"
                "  codes and empty payloads, and changes nothing:\n");
    for (const auto &c : kResultCodeTable)
        std::printf("  %3d  %-16s %s\n", c.code, c.name, c.meaning);
}

std::string RunHint()
{
    return std::string(" (see '") + kProgram + " run --help')";
}

// The options of "run" (args after it).
DaemonOptions ParseRunOptions(const std::vector<std::string> &args)
{
    DaemonOptions options;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (arg == "--demo-accounts") {
            options.demo_accounts = true;
            continue;
        }
        if (arg == "--no-sender-check") {
            options.no_sender_check = true;
            continue;
        }
        std::string value;
        if (arg == "--seed") {
            if (i + 1 >= args.size())
                throw UsageError("option --seed needs N" + RunHint());
            value = args[++i];
        } else if (arg.compare(0, 7, "--seed=") == 0) {
            value = arg.substr(7);
        } else {
            throw UsageError("run does not take '" + arg + "'" + RunHint());
        }
        errno = 0;
        char *end = nullptr;
        const unsigned long long n = std::strtoull(value.c_str(), &end, 10);
        if (value.empty() || value[0] == '-' || *end != '\0' || errno == ERANGE ||
            n > 0xffffffffull)
            throw UsageError("option --seed needs an integer from 0 to 4294967295, not '" + value +
                             "'" + RunHint());
        options.seed = static_cast<std::uint32_t>(n);
    }
    return options;
}

int Run(std::vector<std::string> args)
{
    // The global --json may also stand before "ctl", as in the other tools.
    bool json = false;
    while (!args.empty() && args[0] == "--json") {
        json = true;
        args.erase(args.begin());
    }
    // --version too, wherever it stands before a "--".
    for (const auto &a : args) {
        if (a == "--")
            break;
        if (a == "--version") {
            std::printf("%s %s\n", kProgram, SSO_VERSION);
            return kExitOk;
        }
    }
    if (json && (args.empty() || args[0] != "ctl"))
        throw UsageError("--json goes with the ctl commands (see '" + std::string(kProgram) +
                         " ctl --help')");
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
        const std::vector<std::string> rest(args.begin() + 1, args.end());
        for (const auto &a : rest)
            if (IsHelp(a)) {
                PrintRunHelp();
                return kExitOk;
            }
        return RunDaemon(ParseRunOptions(rest));
    }
    // "run" may be left out before its options too.
    if (mode == "--demo-accounts" || mode.compare(0, 6, "--seed") == 0)
        return RunDaemon(ParseRunOptions(args));
    if (mode == "ctl")
        return RunCtl(std::vector<std::string>(args.begin() + 1, args.end()), json);
    throw UsageError("unknown mode '" + mode + "' (see '" + std::string(kProgram) + " --help')");
}

} // namespace

int main(int argc, char **argv)
{
    return ssotools::GuardMain(
        kProgram, [&] { return Run(std::vector<std::string>(argv + 1, argv + argc)); });
}
