// Whitelist and signature access tokens end to end: an application of a
// registered package asks the simulator for a token with its package id and
// signer-key fingerprint, gets it on its callback and reads the same token
// back from secure storage; packages that are not the caller's are refused on
// both paths before anything is sent; the two system packages may act for any
// package.
#include <gtest/gtest.h>
#include <package_manager_admin.h>

#include <cstdlib>
#include <cstring>
#include <json/json.h>
#include <sstream>
#include <string>
#include <vector>

#include "signed_package.h"
#include "test_certs.h"
#include "test_requests_support.h"

namespace {

using namespace reqtest;

constexpr const char *kPackage = "org.example.requests.pkg";
// Spelt as the service stores it, with no separator before the app id.
constexpr const char *kKeyPrefix = "DATA_KEY_NAME_WHILIST_ACCESSTOKEN_RESPONSE_";
constexpr const char *kMethod = "sso_service_request_whitelist_accesstoken";
constexpr const char *kTuple =
    "('{obj}', '{app}', '{pkg}', '{sig}', '{scope}', int64 {cb}, int64 {tid}, int64 {ud}, {ae}, "
    "'sso_service_request_whitelist_accesstoken')";

const void *Cb()
{
    return reinterpret_cast<const void *>(&StringCb);
}

// The requesting application kAppId belongs to PackageId(), registered with a
// fresh signer certificate (none when WithCertificate() is false).
class Whitelist : public Requests {
protected:
    void SetUp() override
    {
        Requests::SetUp();
        if (!PackageId().empty())
            Register(PackageId(), kAppId, WithCertificate());
    }

    virtual std::string PackageId() const { return kPackage; }
    virtual bool WithCertificate() const { return true; }

    void Register(const std::string &package, const std::string &app, bool withCert)
    {
        cert_ = certtest::MakeCert(root_.path());
        ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE,
                  certtest::AddSignedPackage(cert_, package, app, withCert));
    }

    std::string Signature() const { return certtest::OpensslKeyDigest(cert_.pem, "sha256"); }

    std::string Tuple(const std::string &app, const std::string &pkg, const std::string &sig,
                      const std::string &scope, void *ud, int ae) const
    {
        return Expand(kTuple, {{"obj", ObjectName()},
                               {"app", app},
                               {"pkg", pkg},
                               {"sig", sig},
                               {"scope", scope},
                               {"cb", Int(Cb())},
                               {"tid", std::to_string(SSOAPIClientUtil::GetDBusProxyThreadId())},
                               {"ud", Int(ud)},
                               {"ae", std::to_string(ae)}});
    }

    // The token the simulator issued (and stored); it delivers the result on
    // "RESULT_sso_service_request_whitelist_accesstoken", as the service does.
    std::string IssuedToken()
    {
        std::string token;
        EXPECT_TRUE(ssotest::WaitUntil([&] {
            Json::Value issued;
            std::istringstream(sim_.Issued()) >> issued;
            if (issued["issued"].size() != 1)
                return false;
            token = issued["issued"][0]["value"].asString();
            return issued["issued"][0]["kind"].asString() == "whitelist_token";
        }));
        return token;
    }

    static std::string Key(const std::string &app) { return kKeyPrefix + app; }

    certtest::TestCert cert_;
};

TEST_F(Whitelist, ARegisteredApplicationGetsItsTokenAndReadsItBack)
{
    sim_.RegisterWhitelist(kPackage, Signature());
    int ud = 0;
    ASSERT_EQ(0, sso_request_whitelist_accesstoken("app.wl", "read", &StringCb, &ud));
    auto journal = Sent(sim_);
    ASSERT_EQ(1u, journal.size());
    EXPECT_EQ(kMethod, journal[0].method);
    const std::string signature = Signature();
    ASSERT_EQ(64u, signature.size());
    EXPECT_EQ(std::string::npos, signature.find_first_not_of("0123456789ABCDEF"));
    EXPECT_EQ(Tuple("app.wl", kPackage, signature, "read", &ud, 0), journal[0].args);

    // The signature matched the registered pair: a token was issued.
    const std::string token = IssuedToken();
    ASSERT_FALSE(token.empty());
    ASSERT_TRUE(WaitForCalls(1));
    Call call = Recorder::Get().Calls().at(0);
    EXPECT_EQ("string", call.kind);
    EXPECT_EQ("SSOProxyMonitor", call.thread);
    EXPECT_EQ(&ud, call.userData);
    EXPECT_EQ(0, call.result);
    EXPECT_EQ(token, call.texts.at(0));

    // The simulator stored it before delivering the result.
    char *stored = nullptr;
    ASSERT_EQ(0, sso_get_whitelist_accesstoken("app.wl", &stored));
    ASSERT_NE(nullptr, stored);
    EXPECT_EQ(token, stored);
    std::free(stored);
    stored = nullptr;
    ASSERT_EQ(0, sso_get_signature_accesstoken("app.wl", &stored));
    EXPECT_EQ(token, stored);
    std::free(stored);
    // The token is a secret: no line without the debug marker holds it.
    EXPECT_EQ(std::string::npos, LibraryLog().find(token));
}

TEST_F(Whitelist, SignatureAndWhitelistRequestsSendIdenticalTuples)
{
    int ud = 0;
    ASSERT_EQ(0, sso_request_whitelist_accesstoken("app.wl", nullptr, &StringCb, &ud));
    ASSERT_EQ(0, sso_request_signature_accesstoken("app.wl", nullptr, &StringCb, &ud));
    auto journal = Sent(sim_);
    ASSERT_EQ(2u, journal.size());
    EXPECT_EQ(journal[0].method, journal[1].method);
    EXPECT_EQ(Tuple("app.wl", kPackage, Signature(), "HAS_NO_VALUE", &ud, 0), journal[0].args);
    EXPECT_EQ(Tuple("app.wl", kPackage, Signature(), "HAS_NO_VALUE", &ud, 1), journal[1].args);
}

TEST_F(Whitelist, AForeignPackageIsRefusedOnBothPathsWithoutTakingAnEventIndex)
{
    sim_.SetApplicationData("org.other.pkg", kimGuid_, Key(kAppId), "TOKEN-OTHER");
    EXPECT_EQ(-1, sso_api_request_whitelist_accesstoken("app.wl", "org.other.pkg", "SIG", nullptr,
                                                        &StringCb, nullptr));
    char *token = reinterpret_cast<char *>(0x1);
    EXPECT_EQ(-1, sso_api_get_whitelist_accesstoken(kAppId, "org.other.pkg", &token));
    EXPECT_EQ(reinterpret_cast<char *>(0x1), token);
    EXPECT_TRUE(Sent(sim_).empty());
    EXPECT_EQ(2, log().Count(Red("not allowed with this package name (org.other.pkg)")));
    EXPECT_EQ(0, NextAeIndex());
    ExpectOnlyTheNextRequestCalledBack();
}

TEST_F(Whitelist, APackageWithoutSignerCertificateIsRefusedWithoutSending)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, package_manager_remove_package(kPackage));
    Register(kPackage, kAppId, false);
    EXPECT_EQ(-1, sso_request_whitelist_accesstoken("app.wl", nullptr, &StringCb, nullptr));
    EXPECT_TRUE(Sent(sim_).empty());
    EXPECT_EQ(0, NextAeIndex());
}

TEST_F(Whitelist, NullArgumentsAreRefusedWithTheirReasons)
{
    EXPECT_EQ(-1, sso_request_whitelist_accesstoken(nullptr, nullptr, &StringCb, nullptr));
    EXPECT_EQ(-1, sso_request_whitelist_accesstoken("a", nullptr, nullptr, nullptr));
    EXPECT_EQ(
        -1, sso_api_request_whitelist_accesstoken("a", nullptr, "s", nullptr, &StringCb, nullptr));
    EXPECT_EQ(-1, sso_api_request_whitelist_accesstoken("a", kPackage, nullptr, nullptr, &StringCb,
                                                        nullptr));
    char *token = nullptr;
    EXPECT_EQ(-1, sso_get_whitelist_accesstoken(nullptr, &token));
    EXPECT_EQ(-1, sso_api_get_whitelist_accesstoken("a", nullptr, &token));
    EXPECT_EQ(nullptr, token);
    const std::string check = "SSO_API_CHECK_NULL_RETURN. Return (";
    EXPECT_EQ(2, log().Count(Red(check + "app_id is nullptr)")));
    EXPECT_EQ(2, log().Count(Red(check + "packagename is nullptr)")));
    EXPECT_EQ(1, log().Count(Red(check + "signature is nullptr)")));
    EXPECT_EQ(1, log().Count(Red(check + "request_whitelist_accesstoken_cb is nullptr)")));
    EXPECT_TRUE(Sent(sim_).empty());
}

TEST_F(Whitelist, TheKeyIsThePrefixFollowedDirectlyByTheAppId)
{
    sim_.SetApplicationData(kPackage, kimGuid_, Key("app.one"), "T-ONE");
    sim_.SetApplicationData(kPackage, kimGuid_, std::string(kKeyPrefix) + "_app.two",
                            "T-SEPARATED");
    char *token = nullptr;
    ASSERT_EQ(0, sso_get_whitelist_accesstoken("app.one", &token));
    EXPECT_STREQ("T-ONE", token);
    std::free(token);
    token = nullptr;
    EXPECT_EQ(-1, sso_get_whitelist_accesstoken("app.two", &token));
    EXPECT_EQ(nullptr, token);
    EXPECT_TRUE(log().Contains(Red("Failed to GetExtractApplicationData()")));
    EXPECT_TRUE(Sent(sim_).empty()); // a purely local read
}

TEST_F(Whitelist, AStoredEmptyTokenGivesAOneByteBuffer)
{
    sim_.SetApplicationData(kPackage, kimGuid_, Key("app.empty"), "");
    char *token = nullptr;
    ASSERT_EQ(0, sso_get_whitelist_accesstoken("app.empty", &token));
    ASSERT_NE(nullptr, token);
    EXPECT_EQ('\0', token[0]);
    std::free(token);
}

TEST_F(Whitelist, AnotherAccountsTokenIsNotRead)
{
    sim_.SetApplicationData(kPackage, leeGuid_, Key("app.wl"), "T-LEE");
    char *token = nullptr;
    EXPECT_EQ(-1, sso_get_whitelist_accesstoken("app.wl", &token));
    EXPECT_EQ(nullptr, token);
}

class WhitelistLoggedOut : public Whitelist {
protected:
    bool SignInFirst() const override { return false; }
};

TEST_F(WhitelistLoggedOut, TheReadFailsOnLoginStateBeforeTheCallerCheck)
{
    char *token = nullptr;
    EXPECT_EQ(-1, sso_api_get_whitelist_accesstoken("app.wl", "org.other.pkg", &token));
    EXPECT_EQ(nullptr, token);
    EXPECT_TRUE(log().Contains("Return (Not login state)"));
    EXPECT_FALSE(log().Contains("not allowed with this package name"));
    EXPECT_FALSE(log().Contains("pParamPackageId"));
}

TEST_F(WhitelistLoggedOut, TheRequestChecksTheCallerBeforeLivenessAndLogin)
{
    EXPECT_EQ(-1, sso_request_whitelist_accesstoken("app.wl", nullptr, &StringCb, nullptr));
    EXPECT_TRUE(log().Contains("Return (Not login state)"));
    EXPECT_TRUE(log().Contains("is equal to pParamPackageId(org.example.requests.pkg)"));
    EXPECT_EQ(0, NextAeIndex());
}

// An application outside any package: its own package id is empty, which
// CheckCaller accepts for itself, so the request goes out with empty package
// and signature; naming any real package is refused.
class WhitelistUnregistered : public Whitelist {
protected:
    std::string PackageId() const override { return ""; }
};

TEST_F(WhitelistUnregistered, NamingAPackageIsRefusedOnBothPaths)
{
    EXPECT_EQ(-1, sso_api_request_whitelist_accesstoken("app.wl", kPackage, "SIG", nullptr,
                                                        &StringCb, nullptr));
    char *token = nullptr;
    EXPECT_EQ(-1, sso_api_get_whitelist_accesstoken("app.wl", kPackage, &token));
    EXPECT_EQ(nullptr, token);
    EXPECT_TRUE(Sent(sim_).empty());
    EXPECT_EQ(0, NextAeIndex());
}

TEST_F(WhitelistUnregistered, ItsOwnRequestCarriesAnEmptyPackageAndSignature)
{
    int ud = 0;
    ASSERT_EQ(0, sso_request_whitelist_accesstoken("app.wl", nullptr, &StringCb, &ud));
    auto journal = Sent(sim_);
    ASSERT_EQ(1u, journal.size());
    EXPECT_EQ(Tuple("app.wl", "", "", "HAS_NO_VALUE", &ud, 0), journal[0].args);
}

// The two system packages may request and read for any package.
class WhitelistPrivileged : public Whitelist, public ::testing::WithParamInterface<const char *> {
protected:
    std::string PackageId() const override { return GetParam(); }
};

TEST_P(WhitelistPrivileged, ActsForAnyPackage)
{
    int ud = 0;
    ASSERT_EQ(0, sso_api_request_whitelist_accesstoken("app.wl", "org.other.pkg", "SIG-X", "s",
                                                       &StringCb, &ud));
    auto journal = Sent(sim_);
    ASSERT_EQ(1u, journal.size());
    EXPECT_EQ(Tuple("app.wl", "org.other.pkg", "SIG-X", "s", &ud, 0), journal[0].args);
    const std::string token = IssuedToken();
    ASSERT_FALSE(token.empty());
    ASSERT_TRUE(WaitForCalls(1));
    EXPECT_EQ(0, Recorder::Get().Calls().at(0).result);
    EXPECT_EQ(token, Recorder::Get().Calls().at(0).texts.at(0));

    char *stored = nullptr;
    ASSERT_EQ(0, sso_api_get_whitelist_accesstoken("app.wl", "org.other.pkg", &stored));
    EXPECT_EQ(token, stored);
    std::free(stored);
}

INSTANTIATE_TEST_SUITE_P(SystemPackages, WhitelistPrivileged,
                         ::testing::Values("org.orvex.ssoservice",
                                           "com.veltra.orvex.veltra-account"),
                         [](const ::testing::TestParamInfo<const char *> &info) {
                             return std::string(info.param[0] == 'o' ? "Service" : "Account");
                         });

} // namespace
