// ssoctl's whitelist and signature access tokens: ssoctl runs as an
// application (SSO_PLATFORM_APP_ID) of a package registered with an author
// certificate through "sso-platform pkg add", requests its token from the
// simulator and reads it back from the account data.
#include "ssoctl_test_support.h"
#include "test_certs.h"

namespace {

using namespace ctltest;

constexpr const char *kPackage = "org.example.ctl.pkg";
constexpr const char *kApp = "org.example.ctl.app";

class CtlWhitelist : public CtlTest {
protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        cert_ = certtest::MakeCert(root_.path());
        apptest::CliResult r =
            apptest::RunCli({"pkg", "add", kPackage, "--app", kApp, "--author-cert", cert_.pem});
        ASSERT_EQ(0, r.status) << r.err;
        SignInViewer();
    }

    // The SHA-256 fingerprint of the package's signer key, as sent.
    std::string Signature() const { return certtest::OpensslKeyDigest(cert_.pem, "sha256"); }

    static CtlResult AsApp(std::vector<std::string> args, const std::string &app = kApp)
    {
        return RunCtl(args, {{"SSO_PLATFORM_APP_ID", app}});
    }

    certtest::TestCert cert_;
};

TEST_F(CtlWhitelist, RequestThenReadTheSameToken)
{
    sim_.RegisterWhitelist(kPackage, Signature());
    CtlResult r = AsApp({"--json", "--show-secrets", "whitelist-token", "request", "--app-id",
                         "wl.app", "--scope", "read"});
    ASSERT_EQ(0, r.status) << Show(r);
    const std::string token = ParseJson(r.out)["access_token"].asString();
    Json::Value issued = LastIssued();
    EXPECT_EQ("whitelist_token", issued["kind"].asString());
    EXPECT_EQ(token, issued["value"].asString());
    EXPECT_EQ(kPackage, issued["package"].asString());
    EXPECT_EQ("read", issued["scope"].asString());
    EXPECT_TRUE(Contains(ArgsOf("sso_service_request_whitelist_accesstoken"),
                         "'wl.app', '" + std::string(kPackage) + "', '" + Signature() + "'"));

    CtlResult get = AsApp({"whitelist-token", "get", "--app-id", "wl.app", "--show-secrets"});
    EXPECT_EQ(0, get.status) << Show(get);
    EXPECT_EQ(token + "\n", get.out);
    CtlResult alias = AsApp({"signature-token", "get", "--app-id", "wl.app"});
    EXPECT_EQ(0, alias.status) << Show(alias);
    EXPECT_EQ(token.substr(0, 6) + kEllipsis + "\n", alias.out);
    CtlResult named = AsApp(
        {"whitelist-token", "get", "--app-id", "wl.app", "--package", kPackage, "--show-secrets"});
    EXPECT_EQ(token + "\n", named.out) << Show(named);
}

TEST_F(CtlWhitelist, SignatureTokenAndExplicitPackageRequests)
{
    CtlResult sig = AsApp({"signature-token", "request", "--app-id", "sig.app"});
    EXPECT_EQ(0, sig.status) << Show(sig);
    CtlResult named = AsApp({"whitelist-token", "request", "--app-id", "named.app", "--package",
                             kPackage, "--signature", "ABCD"});
    EXPECT_EQ(0, named.status) << Show(named);
    EXPECT_EQ((std::vector<std::string>{"sso_service_request_whitelist_accesstoken",
                                        "sso_service_request_whitelist_accesstoken"}),
              Methods());
    Json::Value issued = Issued();
    ASSERT_EQ(2u, issued.size());
    EXPECT_EQ("sig.app", issued[0]["app_id"].asString());
    EXPECT_EQ("named.app", issued[1]["app_id"].asString());
    EXPECT_TRUE(Contains(sim_.Journal().back().args, "'named.app', 'org.example.ctl.pkg', 'ABCD'"))
        << sim_.Journal().back().args;
}

TEST_F(CtlWhitelist, AnUnlistedSignatureIsNotWhitelisted)
{
    sim_.RegisterWhitelist(kPackage, "00");
    CtlResult r = AsApp({"--json", "whitelist-token", "request", "--app-id", "wl.app"});
    EXPECT_EQ(1, r.status) << Show(r);
    EXPECT_EQ(ssosim::kResultNotWhitelisted, ParseJson(r.out)["result"].asInt());
}

TEST_F(CtlWhitelist, AnotherPackageIsRefusedWithoutAsking)
{
    CtlResult request = AsApp({"whitelist-token", "request", "--app-id", "wl.app", "--package",
                               "org.other.pkg", "--signature", "AB"});
    EXPECT_EQ(1, request.status) << Show(request);
    EXPECT_TRUE(Contains(request.err, "may not do this")) << request.err;
    CtlResult get =
        AsApp({"whitelist-token", "get", "--app-id", "wl.app", "--package", "org.other.pkg"});
    EXPECT_EQ(1, get.status) << Show(get);
    EXPECT_TRUE(Contains(get.err, "no token for wl.app")) << get.err;
    EXPECT_TRUE(Methods().empty());
}

TEST_F(CtlWhitelist, APackageWithoutCertificateIsRefused)
{
    apptest::CliResult r =
        apptest::RunCli({"pkg", "add", "org.example.nocert", "--app", "org.example.nocert.app"});
    ASSERT_EQ(0, r.status) << r.err;
    CtlResult req =
        AsApp({"whitelist-token", "request", "--app-id", "wl.app"}, "org.example.nocert.app");
    EXPECT_EQ(1, req.status) << Show(req);
    EXPECT_TRUE(Methods().empty());
}

TEST_F(CtlWhitelist, NothingStoredOrNobodySignedIn)
{
    CtlResult none = AsApp({"--json", "whitelist-token", "get", "--app-id", "never.app"});
    EXPECT_EQ(1, none.status) << Show(none);
    EXPECT_FALSE(ParseJson(none.out)["ok"].asBool());
    sim_.SignOut();
    EXPECT_EQ(1, AsApp({"whitelist-token", "request", "--app-id", "wl.app"}).status);
    EXPECT_TRUE(Methods().empty());
}

} // namespace
