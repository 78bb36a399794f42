#include "fuzz_support.h"

#include <dlog.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "SSOAPIUtil.h"
#include "sso_test_harness.h"

namespace ssofuzz {

namespace {

// Alive for the whole run; the harness removes the root at exit. The bus is
// stopped by StopPrivateBus, or dies with the process (PR_SET_PDEATHSIG).
std::unique_ptr<ssotest::PlatformRoot> g_root;
ssotest::PrivateBus *g_bus = nullptr;

} // namespace

void SetUpPlatform()
{
    if (g_root)
        return;
    g_root = std::make_unique<ssotest::PlatformRoot>();
    g_root->CreateDeviceFile("/etc/debug");
    setenv("SSO_PLATFORM_LOG", "file:/dev/null", 1);
    setenv("SSO_PLATFORM_LOG_LEVEL", "verbose", 1);
    dlog_reload_config();
    // Loading the library marks the client alive; without that every path
    // under test would stop at its first check.
    if (!SSOAPIUtil::IsClientAlive())
        Fail("the library's life-cycle object is not linked in");
}

bool StartPrivateBus()
{
    if (g_bus)
        return g_bus->running();
    g_bus = new ssotest::PrivateBus();
    try {
        g_bus->Start();
    } catch (const std::exception &e) {
        fprintf(stderr, "fuzz: no private bus: %s\n", e.what());
        return false;
    }
    return true;
}

void StopPrivateBus()
{
    delete g_bus;
    g_bus = nullptr;
}

void Fail(const char *what, const std::string &detail)
{
    fprintf(stderr, "fuzz invariant broken: %s %s\n", what, detail.c_str());
    abort();
}

} // namespace ssofuzz
