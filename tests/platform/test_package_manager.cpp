// The package registry: registering, looking up by application, reading the
// certificates back as base64 of their DER, the user id each package's
// processes run as, and the CLI (sso-platform pkg) across processes with its
// exit codes.
#include <gtest/gtest.h>
#include <package_manager.h>
#include <package_manager_admin.h>

#include <cstdlib>
#include <fstream>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sso_test_harness.h"
#include "test_certs.h"

namespace {

using Certs = std::vector<std::pair<int, std::string>>;

class PackageManager : public ssotest::RootTest {
protected:
    int
    Add(const std::string &id, const std::vector<std::string> &apps,
        const std::vector<std::pair<package_cert_type_e, std::vector<unsigned char>>> &certs = {})
    {
        std::vector<const char *> appPtrs;
        for (const auto &a : apps)
            appPtrs.push_back(a.c_str());
        std::vector<package_manager_cert_s> c;
        for (const auto &cert : certs)
            c.push_back({cert.first, cert.second.data(), cert.second.size()});
        return package_manager_add_package(id.c_str(), appPtrs.data(), appPtrs.size(),
                                           c.empty() ? nullptr : c.data(), c.size());
    }

    static Certs ReadCerts(const std::string &id, int *rc = nullptr, size_t stopAfter = 100)
    {
        struct Ctx {
            Certs certs;
            size_t stopAfter;
        } ctx{{}, stopAfter};
        package_info_h handle = nullptr;
        int r = package_info_create(id.c_str(), &handle);
        if (rc)
            *rc = r;
        if (r != PACKAGE_MANAGER_ERROR_NONE)
            return {};
        EXPECT_EQ(PACKAGE_MANAGER_ERROR_NONE,
                  package_info_foreach_cert_info(
                      handle,
                      [](package_info_h, package_cert_type_e type, const char *value, void *ud) {
                          auto *c = static_cast<Ctx *>(ud);
                          c->certs.emplace_back(static_cast<int>(type), value);
                          return c->certs.size() < c->stopAfter;
                      },
                      &ctx));
        EXPECT_EQ(PACKAGE_MANAGER_ERROR_NONE, package_info_destroy(handle));
        return ctx.certs;
    }

    static std::string PackageOf(const std::string &app, int *rc = nullptr)
    {
        char *id = nullptr;
        int r = package_manager_get_package_id_by_app_id(app.c_str(), &id);
        if (rc)
            *rc = r;
        std::string out = id ? id : "<none>";
        std::free(id);
        return out;
    }

    std::string Base64Of(const std::string &derPath) const
    {
        auto r = ssotest::RunCommand({"openssl", "base64", "-A", "-in", derPath});
        return r.out;
    }
};

TEST_F(PackageManager, LooksUpThePackageOfAnApplication)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE,
              Add("org.example.pkg", {"org.example.a", "org.example.b"}));
    EXPECT_EQ("org.example.pkg", PackageOf("org.example.a"));
    EXPECT_EQ("org.example.pkg", PackageOf("org.example.b"));
    int rc = 0;
    EXPECT_EQ("<none>", PackageOf("org.example.c", &rc));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE, rc);
}

TEST_F(PackageManager, AnEmptyRegistryKnowsNoApplication)
{
    int rc = 0;
    EXPECT_EQ("<none>", PackageOf("org.example.a", &rc));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE, rc);
}

TEST_F(PackageManager, TheSmallestPackageIdWinsForASharedApplication)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.z", {"shared.app"}));
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.b", {"shared.app"}));
    EXPECT_EQ("org.b", PackageOf("shared.app"));
}

TEST_F(PackageManager, CertificatesComeBackAsBase64OfTheirDerInOrder)
{
    certtest::TestCert signer = certtest::MakeCert(root_.path(), "signer");
    certtest::TestCert rootCert = certtest::MakeCert(root_.path(), "root");
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE,
              Add("org.example.pkg", {"org.example.a"},
                  {{PACKAGE_INFO_AUTHOR_ROOT_CERT, certtest::ReadBytes(rootCert.der)},
                   {PACKAGE_INFO_AUTHOR_SIGNER_CERT, certtest::ReadBytes(signer.der)}}));
    Certs certs = ReadCerts("org.example.pkg");
    ASSERT_EQ(2u, certs.size());
    EXPECT_EQ(PACKAGE_INFO_AUTHOR_ROOT_CERT, certs[0].first);
    EXPECT_EQ(Base64Of(rootCert.der), certs[0].second);
    EXPECT_EQ(PACKAGE_INFO_AUTHOR_SIGNER_CERT, certs[1].first);
    EXPECT_EQ(Base64Of(signer.der), certs[1].second);
}

TEST_F(PackageManager, TheCallbackStopsTheIterationByReturningFalse)
{
    std::vector<unsigned char> bytes = {1, 2, 3, 4, 5};
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.example.pkg", {"a"},
                                              {{PACKAGE_INFO_AUTHOR_ROOT_CERT, bytes},
                                               {PACKAGE_INFO_AUTHOR_SIGNER_CERT, bytes},
                                               {PACKAGE_INFO_DISTRIBUTOR_ROOT_CERT, bytes}}));
    Certs certs = ReadCerts("org.example.pkg", nullptr, 1);
    ASSERT_EQ(1u, certs.size());
    EXPECT_EQ("AQIDBAU=", certs[0].second);
}

TEST_F(PackageManager, APackageWithoutCertificatesIteratesNothing)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.example.pkg", {"a"}));
    int rc = -1;
    EXPECT_TRUE(ReadCerts("org.example.pkg", &rc).empty());
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NONE, rc);
}

TEST_F(PackageManager, UnknownAndInvalidPackages)
{
    int rc = 0;
    ReadCerts("org.missing", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE, rc);
    ReadCerts("", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, rc);
    ReadCerts("../escape", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, rc);
    package_info_h handle = nullptr;
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, package_info_create(nullptr, &handle));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, package_info_create("org.x", nullptr));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, package_info_destroy(nullptr));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER,
              package_info_foreach_cert_info(nullptr, nullptr, nullptr));
    char *id = nullptr;
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER,
              package_manager_get_package_id_by_app_id(nullptr, &id));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER,
              package_manager_get_package_id_by_app_id("a", nullptr));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, Add(".hidden", {"a"}));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, Add("org.x", {}));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, Add("org.x", {"has space"}));
}

TEST_F(PackageManager, AMalformedEntryIsAnIoErrorAndIsSkippedByTheLookUp)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.good", {"app.one"}));
    std::ofstream(root_.path() + "/packages/org.bad") << "app app.one\ngarbage\n";
    int rc = 0;
    ReadCerts("org.bad", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_IO_ERROR, rc);
    EXPECT_EQ("org.good", PackageOf("app.one"));
}

TEST_F(PackageManager, RemoveAndReplace)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.example.pkg", {"a"}));
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.example.pkg", {"b"}));
    EXPECT_EQ("<none>", PackageOf("a"));
    EXPECT_EQ("org.example.pkg", PackageOf("b"));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NONE, package_manager_remove_package("org.example.pkg"));
    EXPECT_EQ("<none>", PackageOf("b"));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE,
              package_manager_remove_package("org.example.pkg"));
}

// ------------------------------------------------------------- user ids

class PackageUids : public PackageManager {
protected:
    int AddAs(const std::string &id, uid_t uid, uid_t *assigned = nullptr)
    {
        const char *app = id.c_str();
        return package_manager_add_package_as(id.c_str(), &app, 1, nullptr, 0, uid, assigned);
    }
    static uid_t UidOf(const std::string &id, int *rc = nullptr)
    {
        uid_t uid = 0;
        int r = package_manager_get_package_uid(id.c_str(), &uid);
        if (rc)
            *rc = r;
        return r == PACKAGE_MANAGER_ERROR_NONE ? uid : static_cast<uid_t>(-1);
    }
};

TEST_F(PackageUids, EachPackageGetsTheLowestFreeUserIdOfTheRange)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.a", {"a"}));
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.b", {"b"}));
    uid_t assigned = 0;
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, AddAs("org.c", PACKAGE_MANAGER_UID_AUTO, &assigned));
    EXPECT_EQ(PACKAGE_MANAGER_UID_MIN, UidOf("org.a"));
    EXPECT_EQ(PACKAGE_MANAGER_UID_MIN + 1, UidOf("org.b"));
    EXPECT_EQ(PACKAGE_MANAGER_UID_MIN + 2, UidOf("org.c"));
    EXPECT_EQ(PACKAGE_MANAGER_UID_MIN + 2, assigned);
    // A gap left by a removed package is filled first.
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, package_manager_remove_package("org.a"));
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.d", {"d"}));
    EXPECT_EQ(PACKAGE_MANAGER_UID_MIN, UidOf("org.d"));
}

TEST_F(PackageUids, ARegistrationKeepsThePackagesUserId)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, AddAs("org.a", 70123));
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, Add("org.a", {"a.new"}));
    EXPECT_EQ(70123u, UidOf("org.a"));
    EXPECT_EQ("org.a", PackageOf("a.new"));
    // Given again explicitly, another id replaces it.
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, AddAs("org.a", 5000));
    EXPECT_EQ(5000u, UidOf("org.a"));
}

TEST_F(PackageUids, NoTwoPackagesShareAUserIdAndRootIsNobodysPackage)
{
    ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE, AddAs("org.a", 4242));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_UID_IN_USE, AddAs("org.b", 4242));
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_INVALID_PARAMETER, AddAs("org.b", 0));
    int rc = 0;
    UidOf("org.b", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE, rc) << "a refused registration was written";
    // The package itself may register again under its own id.
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NONE, AddAs("org.a", 4242));
}

TEST_F(PackageUids, ConcurrentRegistrationsNeverShareAUserId)
{
    constexpr int kProcesses = 6;
    std::vector<ssotest::ChildProcess> children;
    for (int p = 0; p < kProcesses; ++p)
        children.push_back(ssotest::ChildProcess::Fork([p] {
            const std::string id = "org.race" + std::to_string(p);
            const char *app = id.c_str();
            return package_manager_add_package(id.c_str(), &app, 1, nullptr, 0);
        }));
    std::set<uid_t> uids;
    for (int p = 0; p < kProcesses; ++p) {
        ASSERT_EQ(0, children[p].Wait());
        uids.insert(UidOf("org.race" + std::to_string(p)));
    }
    EXPECT_EQ(static_cast<size_t>(kProcesses), uids.size());
    EXPECT_EQ(PACKAGE_MANAGER_UID_MIN, *uids.begin());
    EXPECT_EQ(PACKAGE_MANAGER_UID_MIN + kProcesses - 1, *uids.rbegin());
}

TEST_F(PackageUids, AnEntryWithoutAUserIdHasNone)
{
    ASSERT_EQ(0, system(("mkdir -p '" + root_.path() + "/packages'").c_str()));
    std::ofstream(root_.path() + "/packages/org.old") << "app old.app\n";
    int rc = 0;
    UidOf("org.old", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NO_UID, rc);
    EXPECT_EQ("org.old", PackageOf("old.app"));
    UidOf("org.none", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE, rc);
}

struct UidLineCase {
    const char *name;
    const char *entry;
};

void PrintTo(const UidLineCase &c, std::ostream *os)
{
    *os << c.name;
}

class MalformedUidLine : public PackageUids, public ::testing::WithParamInterface<UidLineCase> {};

TEST_P(MalformedUidLine, MakesTheEntryMalformed)
{
    ASSERT_EQ(0, system(("mkdir -p '" + root_.path() + "/packages'").c_str()));
    std::ofstream(root_.path() + "/packages/org.bad") << GetParam().entry;
    int rc = 0;
    UidOf("org.bad", &rc);
    EXPECT_EQ(PACKAGE_MANAGER_ERROR_IO_ERROR, rc);
    EXPECT_EQ("<none>", PackageOf("bad.app"));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, MalformedUidLine,
    ::testing::Values(UidLineCase{"Root", "app bad.app\nuid 0\n"},
                      UidLineCase{"Negative", "app bad.app\nuid -5\n"},
                      UidLineCase{"NotANumber", "app bad.app\nuid seventy\n"},
                      UidLineCase{"TrailingText", "app bad.app\nuid 70000x\n"},
                      UidLineCase{"Empty", "app bad.app\nuid \n"},
                      UidLineCase{"TheInvalidId", "app bad.app\nuid 4294967295\n"},
                      UidLineCase{"TooLarge", "app bad.app\nuid 99999999999\n"},
                      UidLineCase{"Twice", "app bad.app\nuid 70000\nuid 70001\n"}),
    [](const auto &info) { return std::string(info.param.name); });

// ------------------------------------------------------------------- CLI

class PkgCli : public PackageManager {
protected:
    static ssotest::CommandResult Cli(std::vector<std::string> args)
    {
        args.insert(args.begin(), ssotest::ToolPath("sso-platform"));
        return ssotest::RunCommand(args);
    }
};

TEST_F(PkgCli, AddShowRemoveWithAPemCertificate)
{
    certtest::TestCert cert = certtest::MakeCert(root_.path());
    auto add = Cli({"pkg", "add", "org.example.pkg", "--app", "org.example.a",
                    "--app=org.example.b", "--author-cert", cert.pem});
    ASSERT_EQ(0, add.status);
    EXPECT_EQ("", add.out);
    EXPECT_EQ("org.example.pkg", PackageOf("org.example.a"));
    EXPECT_EQ("org.example.pkg", PackageOf("org.example.b"));
    Certs certs = ReadCerts("org.example.pkg");
    ASSERT_EQ(1u, certs.size());
    EXPECT_EQ(PACKAGE_INFO_AUTHOR_SIGNER_CERT, certs[0].first);
    EXPECT_EQ(Base64Of(cert.der), certs[0].second);

    auto show = Cli({"pkg", "show", "org.example.pkg"});
    ASSERT_EQ(0, show.status);
    EXPECT_EQ("package\torg.example.pkg\napp\torg.example.a\napp\torg.example.b\n"
              "cert\tauthor-signer\t" +
                  Base64Of(cert.der) + "\nuid\t70000\n",
              show.out);

    EXPECT_EQ(0, Cli({"pkg", "rm", "org.example.pkg"}).status);
    EXPECT_EQ("<none>", PackageOf("org.example.a"));
    EXPECT_EQ(1, Cli({"pkg", "rm", "org.example.pkg"}).status);
    EXPECT_EQ(1, Cli({"pkg", "show", "org.example.pkg"}).status);
}

TEST_F(PkgCli, ADerCertificateIsStoredAsIs)
{
    certtest::TestCert cert = certtest::MakeCert(root_.path());
    ASSERT_EQ(
        0, Cli({"pkg", "add", "org.example.pkg", "--app", "a", "--author-cert", cert.der}).status);
    Certs certs = ReadCerts("org.example.pkg");
    ASSERT_EQ(1u, certs.size());
    EXPECT_EQ(Base64Of(cert.der), certs[0].second);
}

TEST_F(PkgCli, TheUserIdIsChosenOrGivenAndShown)
{
    ASSERT_EQ(0, Cli({"pkg", "add", "org.one", "--app", "one"}).status);
    ASSERT_EQ(0, Cli({"pkg", "add", "org.two", "--app", "two", "--uid", "4321"}).status);
    EXPECT_EQ("package\torg.one\napp\tone\nuid\t70000\n", Cli({"pkg", "show", "org.one"}).out);
    EXPECT_EQ("package\torg.two\napp\ttwo\nuid\t4321\n", Cli({"pkg", "show", "org.two"}).out);
    auto taken = ssotest::RunCommand({"/bin/sh", "-c",
                                      "exec \"$0\" pkg add org.three --app three --uid 4321 2>&1",
                                      ssotest::ToolPath("sso-platform")});
    EXPECT_EQ(1, taken.status);
    EXPECT_NE(std::string::npos, taken.out.find("belongs to another package")) << taken.out;
    EXPECT_EQ(2, Cli({"pkg", "add", "org.three", "--app", "three", "--uid", "0"}).status);
    EXPECT_EQ(2, Cli({"pkg", "add", "org.three", "--app", "three", "--uid", "-1"}).status);
    EXPECT_EQ(2, Cli({"pkg", "add", "org.three", "--app", "three", "--uid", "x"}).status);
    EXPECT_EQ("<none>", PackageOf("three"));
}

TEST_F(PkgCli, UsageErrorsAndFailures)
{
    EXPECT_EQ(2, Cli({"pkg", "add", "org.example.pkg"}).status); // no --app
    EXPECT_EQ(2, Cli({"pkg", "add", "--app", "a"}).status);      // no package id
    EXPECT_EQ(2, Cli({"pkg", "add", ".bad", "--app", "a"}).status);
    EXPECT_EQ(2, Cli({"pkg", "frobnicate"}).status);
    std::ofstream(root_.path() + "/not-a-cert") << "hello";
    EXPECT_EQ(
        1, Cli({"pkg", "add", "org.x", "--app", "a", "--author-cert", root_.path() + "/not-a-cert"})
               .status);
    EXPECT_EQ(1,
              Cli({"pkg", "add", "org.x", "--app", "a", "--author-cert", root_.path() + "/missing"})
                  .status);
    EXPECT_EQ("<none>", PackageOf("a"));
}

TEST_F(PkgCli, HelpShowsExamples)
{
    auto help = Cli({"pkg", "--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("sso-platform pkg add org.example.pkg"));
    auto addHelp = Cli({"pkg", "add", "--help"});
    EXPECT_EQ(0, addHelp.status);
    EXPECT_NE(std::string::npos, addHelp.out.find("--author-cert"));
    EXPECT_NE(std::string::npos, Cli({"--help"}).out.find("pkg"));
}

} // namespace
