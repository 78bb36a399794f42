// `sso-simulator run`: the daemon.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ssosim {

// The object name the simulator uses as a sender: "obj<pid>_<app id>", the
// app id being $SSO_PLATFORM_APP_ID or "org.orvex.ssoservice".
std::string OwnObjectName();

struct DaemonOptions {
    bool demo_accounts = false;        // preload three demo accounts
    std::optional<std::uint32_t> seed; // reproducible generated identifiers
    // Accept object names that are not the sender's (a service that skips
    // the check), to test what a client does with results it did not ask for.
    bool no_sender_check = false;
};

// Runs until SIGTERM, SIGINT or Quit (exit 0), or until the bus goes away, the
// name cannot be had or the account state cannot be published (exit 1, with
// a message on stderr).
int RunDaemon(const DaemonOptions &options = {});

} // namespace ssosim
