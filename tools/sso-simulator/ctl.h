// `sso-simulator ctl`: scripts a running simulator over its control interface.
#pragma once

#include <string>
#include <vector>

namespace ssosim {

// args follow "ctl"; json: --json stood before "ctl". Throws UsageError or
// Failure; returns the exit status.
int RunCtl(const std::vector<std::string> &args, bool json = false);

void PrintCtlHelp();

} // namespace ssosim
