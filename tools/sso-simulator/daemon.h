// `sso-simulator run`: the daemon.
#pragma once

#include <string>

namespace ssosim {

// The object name the simulator uses as a sender: "obj<pid>_<app id>", the
// app id being $SSO_PLATFORM_APP_ID or "org.orvex.ssoservice".
std::string OwnObjectName();

// Runs until SIGTERM, SIGINT or Quit (exit 0), or until the bus goes away or
// the name cannot be had (exit 1, with a message on stderr).
int RunDaemon();

} // namespace ssosim
