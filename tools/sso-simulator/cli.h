// Exit codes and errors shared by the command-line modes.
#pragma once

#include "tool_cli.h"

namespace ssosim {

inline constexpr const char *kProgram = "sso-simulator";

using ssotools::Failure;
using ssotools::kExitFailure;
using ssotools::kExitOk;
using ssotools::kExitUsage;
using ssotools::UsageError;

} // namespace ssosim
