// Shared by the ssoctl tests: running ssoctl as a child process with its
// stdout, stderr and exit status, reading its JSON, and a simulator fixture
// with a signed-in viewer and the account UI stand-in at hand.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "../platform/app_control_test_util.h"
#include "json_text.h"
#include "run_tool.h"
#include "sso_simulator_harness.h"

namespace ctltest {

using apptest::kAccountApp;
using apptest::kPinApp;
using apptest::kWebApp;
// The bullet-like ellipsis ssoctl puts after the shown part of a secret.
inline constexpr const char *kEllipsis = "\xE2\x80\xA6";

using CtlResult = ssotest::ToolResult;

// Runs "ssoctl ARGS..." to completion; stdin is /dev/null unless input is
// given (then it is what ssoctl reads).
inline CtlResult RunCtl(const std::vector<std::string> &args,
                        std::map<std::string, std::string> env = {},
                        const std::string *input = nullptr)
{
    return ssotest::RunTool("ssoctl", args, std::move(env),
                            input ? std::optional<std::string>(*input) : std::nullopt);
}

using ssotest::ParseJson;

inline bool Contains(const std::string &haystack, const std::string &needle)
{
    return haystack.find(needle) != std::string::npos;
}

// Prints a result for a failed expectation.
inline std::string Show(const CtlResult &r)
{
    return "status " + std::to_string(r.status) + "\nstdout:\n" + r.out + "stderr:\n" + r.err;
}

// A simulator with one account, viewer@example.com (password "pw"), that
// SignInViewer signs in.
class CtlTest : public ssotest::SimulatorTest {
protected:
    static constexpr const char *kViewer = "viewer@example.com";

    void SetUp() override
    {
        SimulatorTest::SetUp();
        ssotest::AccountSpec viewer;
        viewer.login_id = kViewer;
        viewer.password = "pw";
        viewer.auth = "UT-viewer-user-token";
        viewerGuid_ = sim_.AddAccount(viewer);
    }

    void SignInViewer() { sim_.SignIn(kViewer); }

    // Entries the simulator issued, oldest first.
    Json::Value Issued() { return ParseJson(sim_.Issued())["issued"]; }
    Json::Value LastIssued()
    {
        Json::Value all = Issued();
        return all.empty() ? Json::Value() : all[all.size() - 1];
    }
    // Methods of the requests the simulator received (its liveness checks
    // left out).
    std::vector<std::string> Methods() { return sim_.RequestMethods(); }
    std::string ArgsOf(const std::string &method)
    {
        for (const auto &e : sim_.Journal())
            if (e.method == method)
                return e.args;
        return "<not received>";
    }
    std::string SignedInGuid() { return ParseJson(sim_.State())["signed_in"].asString(); }

    // The account UI stand-in under the three account UI ids, registered the
    // way a device image does it.
    void RegisterAccountUi()
    {
        for (const char *id : {kAccountApp, kPinApp, kWebApp}) {
            apptest::CliResult r = apptest::RunCli(
                {"app", "add", id, "--exec", ssotest::ToolPath("sso-account-ui-test")});
            ASSERT_EQ(r.status, 0) << r.err;
        }
    }
    std::string UiRunDir() const { return apptest::AccountUiRunDir(root_.path()); }
    // What the stand-in does when launched as appId: "name=value" lines.
    void Script(const std::string &appId, const std::vector<std::string> &lines) const
    {
        apptest::ScriptAccountUi(root_.path(), appId, lines);
    }
    // The launch request the stand-in recorded as appId.
    apptest::Record UiRecord(const std::string &appId) const
    {
        return apptest::WaitForRecord(UiRunDir() + "/" + appId + ".record");
    }
    bool Launched(const std::string &appId) const
    {
        return apptest::FileExists(UiRunDir() + "/" + appId + ".record");
    }

    std::string viewerGuid_;
};

} // namespace ctltest
