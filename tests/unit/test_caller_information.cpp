// CCallerInformation: identification from the platform (application id,
// package id) and the command line (binary id), the package check with its
// two privileged packages, and the signer-certificate fingerprint checked
// against the openssl command. Command-line cases re-run this binary with a
// chosen argv through the CallerProbe case below.
#include <gtest/gtest.h>
#include <package_manager_admin.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <fstream>
#include <string>
#include <vector>

#include "CallerInformation.h"
#include "SSOAPIUtil.h"
#include "sso_api/sso_api.h"
#include "sso_test_harness.h"
#include "test_certs.h"

extern char **environ;

namespace {

constexpr const char *kProbeEnv = "CALLER_INFORMATION_PROBE";

// NUL bytes made visible.
std::string Visible(const std::string &text)
{
    std::string out;
    for (char c : text)
        out += c == '\0' ? std::string("\\0") : std::string(1, c);
    return out;
}

// Runs only inside a child started by RunProbe: prints what the caller
// identity found for that child's command line and environment.
TEST(CallerProbe, Report)
{
    if (getenv(kProbeEnv) == nullptr)
        GTEST_SKIP() << "runs only as the child of a command-line test";
    CCallerInformation *info = SSOAPISingleton<CCallerInformation>::GetInstance();
    std::printf("PROBE binary=%s\n", Visible(info->GetBinaryID()).c_str());
    std::printf("PROBE package=%s\n", Visible(info->GetPackageID()).c_str());
    std::printf("PROBE unique=%s\n", Visible(info->GetUniqueID()).c_str());
    std::fflush(stdout);
}

// Re-executes this test binary as argv (argv[0] is only the name it is
// given) without SSO_PLATFORM_APP_ID, running CallerProbe.Report, and returns
// its PROBE values.
std::map<std::string, std::string> RunProbe(const std::vector<std::string> &argv)
{
    std::vector<std::string> env;
    for (char **e = environ; *e; ++e)
        if (std::strncmp(*e, "SSO_PLATFORM_APP_ID=", 20) != 0 && std::strncmp(*e, "GTEST_", 6) != 0)
            env.emplace_back(*e);
    env.emplace_back(std::string(kProbeEnv) + "=1");
    env.emplace_back("GTEST_FILTER=CallerProbe.Report");
    std::vector<char *> args, envp;
    for (const auto &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    for (const auto &e : env)
        envp.push_back(const_cast<char *>(e.c_str()));
    envp.push_back(nullptr);

    int fds[2];
    if (pipe(fds) != 0)
        throw std::runtime_error("pipe");
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], 1);
        close(fds[0]);
        close(fds[1]);
        execve("/proc/self/exe", args.data(), envp.data());
        _exit(127);
    }
    close(fds[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof(buf))) > 0)
        out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;

    std::map<std::string, std::string> values;
    size_t at = 0;
    while ((at = out.find("PROBE ", at)) != std::string::npos) {
        size_t eq = out.find('=', at);
        size_t end = out.find('\n', at);
        values[out.substr(at + 6, eq - at - 6)] = out.substr(eq + 1, end - eq - 1);
        at = end;
    }
    return values;
}

class CallerInformation : public ssotest::RootTest {
protected:
    void TearDown() override { unsetenv("SSO_PLATFORM_APP_ID"); }

    static void Register(const std::string &package, const std::string &app,
                         const std::vector<std::pair<package_cert_type_e, std::string>> &certs = {})
    {
        std::vector<std::vector<unsigned char>> ders;
        std::vector<package_manager_cert_s> c;
        for (const auto &cert : certs)
            ders.push_back(certtest::ReadBytes(cert.second));
        for (size_t i = 0; i < certs.size(); ++i)
            c.push_back({certs[i].first, ders[i].data(), ders[i].size()});
        const char *apps[] = {app.c_str()};
        ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE,
                  package_manager_add_package(package.c_str(), apps, 1,
                                              c.empty() ? nullptr : c.data(), c.size()));
    }

    // The caller identity of this process, as the application app.
    static CCallerInformation *As(const std::string &app)
    {
        setenv("SSO_PLATFORM_APP_ID", app.c_str(), 1);
        return SSOAPISingleton<CCallerInformation>::GetInstance();
    }

    // The caller identity of app, registered as the one application of the
    // unsigned package.
    CCallerInformation *RegisteredAs(const std::string &package, const std::string &app)
    {
        Register(package, app);
        return As(app);
    }
};

// ----------------------------------------------------------- identification

TEST_F(CallerInformation, WithoutAnyApplicationIdTheUniqueIdIsUnknownNotTheBinaryId)
{
    // The first argument derives to "unknown"; the last "/" of the whole
    // command line is in the second argument.
    auto values = RunProbe({"unknown", "--marker=/tmp/bin-tail"});
    EXPECT_EQ("unknown", values["unique"]);
    EXPECT_EQ("bin-tail\\0", values["binary"]);
    EXPECT_EQ("", values["package"]);
}

TEST_F(CallerInformation, TheBinaryIdIsTheTextAfterTheLastSlashOfTheWholeCommandLine)
{
    auto values = RunProbe({"/usr/bin/app", "--path=/tmp/x"});
    EXPECT_EQ("x\\0", values["binary"]);
}

TEST_F(CallerInformation, TheBinaryIdOfAPlainCommandLineIsTheExecutableName)
{
    auto values = RunProbe({"/opt/apps/player"});
    EXPECT_EQ("player\\0", values["binary"]);
    // The derived application id stands in for the missing package.
    EXPECT_EQ("player", values["unique"]);
}

TEST_F(CallerInformation, TheUniqueIdIsThePackageIdWhenKnown)
{
    CCallerInformation *info = RegisteredAs("org.example.pkg", "org.example.app");
    EXPECT_EQ("org.example.pkg", info->GetPackageID());
    EXPECT_EQ("org.example.pkg", info->GetUniqueID());
}

TEST_F(CallerInformation, AnApplicationOutsideAnyPackageIsKnownByItsApplicationId)
{
    CCallerInformation *info = As("org.example.loose");
    EXPECT_EQ("", info->GetPackageID());
    EXPECT_EQ("org.example.loose", info->GetUniqueID());
    EXPECT_TRUE(log().Contains(
        "Failed to package_manager_get_package_id_by_app_id() : [org.example.loose]"));
}

TEST_F(CallerInformation, IdentificationRunsOnceAndIsKeptForTheProcess)
{
    CCallerInformation *info = As("org.example.app");
    EXPECT_EQ(0, sso_pre_init_callerInformation());
    EXPECT_EQ("", info->GetPackageID());
    // Registered later: the failed look-up is not retried.
    Register("org.example.pkg", "org.example.app");
    EXPECT_EQ(0, sso_pre_init_callerInformation());
    EXPECT_EQ("", info->GetPackageID());
    EXPECT_EQ(1, log().Count("Need to initilalize"));
    EXPECT_TRUE(log().Contains("[END] m_bBinaryIdReady (1), m_bAppIdReady (1), "
                               "m_bPackageIdReady (0)"));
}

TEST_F(CallerInformation, PreInitIsRefusedOnceTheLibraryIsUnloading)
{
    SSOAPIUtil::SetClientToTerminated();
    EXPECT_EQ(-1, sso_pre_init_callerInformation());
    EXPECT_TRUE(log().Contains("SSO_API_CHECK_NULL_RETURN. Return (pCallerInfoInstance is null)"));
    SSOAPIUtil::SetClientToAlive();
}

// ------------------------------------------------------------- CheckCaller

TEST_F(CallerInformation, OnlyKindOneIsServedEvenForTheServicePackage)
{
    CCallerInformation *info = RegisteredAs("org.orvex.ssoservice", "org.orvex.ssoservice.app");
    EXPECT_FALSE(info->CheckCaller(2, "org.orvex.ssoservice"));
    EXPECT_FALSE(info->CheckCaller(0, "org.orvex.ssoservice"));
    EXPECT_TRUE(info->CheckCaller(1, "org.orvex.ssoservice"));
    EXPECT_TRUE(log().Contains("\033[0;31m[END] m_packageId(org.orvex.ssoservice) is not equal to "
                               "pParamPackageId(org.orvex.ssoservice). Return false\033[0m"));
}

// The service's package and the account package may each name any package.
class PrivilegedPackage
    : public CallerInformation,
      public ::testing::WithParamInterface<std::pair<const char *, const char *>> {};

TEST_P(PrivilegedPackage, MayNameAnyPackage)
{
    const auto [package, app] = GetParam();
    CCallerInformation *info = RegisteredAs(package, app);
    EXPECT_TRUE(info->CheckCaller(1, "org.someone.else"));
    EXPECT_TRUE(info->CheckCaller(1, ""));
    EXPECT_TRUE(log().Contains(std::string("[END] m_packageId is '") + package +
                               "'. pParamPackageId(org.someone.else)"));
}

INSTANTIATE_TEST_SUITE_P(
    ServiceAndAccount, PrivilegedPackage,
    ::testing::Values(std::make_pair("org.orvex.ssoservice", "org.orvex.ssoservice.app"),
                      std::make_pair("com.veltra.orvex.veltra-account", "com.veltra.account.app")));

TEST_F(CallerInformation, AnOrdinaryPackageMayNameOnlyItselfExactly)
{
    CCallerInformation *info = RegisteredAs("org.example.pkg", "org.example.app");
    EXPECT_TRUE(info->CheckCaller(1, "org.example.pkg"));
    EXPECT_FALSE(info->CheckCaller(1, "org.example.PKG"));
    EXPECT_FALSE(info->CheckCaller(1, "org.example.pkg "));
    EXPECT_FALSE(info->CheckCaller(1, "org.orvex.ssoservice"));
    EXPECT_FALSE(info->CheckCaller(1, ""));
    EXPECT_TRUE(log().Contains(
        "[END] m_packageId(org.example.pkg) is equal to pParamPackageId(org.example.pkg) "));
}

TEST_F(CallerInformation, AnEmptyPackageIdMatchesACallerWithoutPackage)
{
    CCallerInformation *info = As("org.example.loose");
    EXPECT_TRUE(info->CheckCaller(1, ""));
    EXPECT_FALSE(info->CheckCaller(1, "org.example.pkg"));
}

// ------------------------------------------------------------- signatures

TEST_F(CallerInformation, SignaturesMatchTheOpensslCommand)
{
    certtest::TestCert cert = certtest::MakeCert(root_.path());
    Register("org.example.pkg", "org.example.app", {{PACKAGE_INFO_AUTHOR_SIGNER_CERT, cert.der}});
    CCallerInformation *info = As("org.example.app");
    std::string sha1 = info->GetSignature(false);
    std::string sha256 = info->GetSignature(true);
    EXPECT_EQ(40u, sha1.size());
    EXPECT_EQ(64u, sha256.size());
    EXPECT_EQ(certtest::OpensslKeyDigest(cert.pem, "sha1"), sha1);
    EXPECT_EQ(certtest::OpensslKeyDigest(cert.pem, "sha256"), sha256);
    EXPECT_EQ(std::string::npos, sha256.find_first_not_of("0123456789ABCDEF"));
    EXPECT_TRUE(log().Contains("length = [32]"));
}

bool LibcryptoMapped()
{
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line))
        if (line.find("/libcrypto.so") != std::string::npos)
            return true;
    return false;
}

// Applications that never ask for a fingerprint do not map libcrypto.
TEST_F(CallerInformation, LibcryptoIsLoadedForTheFirstFingerprintOnly)
{
    certtest::TestCert cert = certtest::MakeCert(root_.path());
    Register("org.example.pkg", "org.example.app", {{PACKAGE_INFO_AUTHOR_SIGNER_CERT, cert.der}});
    CCallerInformation *info = As("org.example.app");
    EXPECT_EQ("org.example.pkg", info->GetPackageID());
    EXPECT_TRUE(info->CheckCaller(1, "org.example.pkg"));
    EXPECT_FALSE(LibcryptoMapped());
    EXPECT_EQ(certtest::OpensslKeyDigest(cert.pem, "sha256"), info->GetSignature(true));
    EXPECT_TRUE(LibcryptoMapped());
}

TEST_F(CallerInformation, OnlyTheAuthorSignerCertificateCounts)
{
    certtest::TestCert other = certtest::MakeCert(root_.path(), "other");
    certtest::TestCert signer = certtest::MakeCert(root_.path(), "signer");
    Register("org.example.pkg", "org.example.app",
             {{PACKAGE_INFO_AUTHOR_ROOT_CERT, other.der},
              {PACKAGE_INFO_AUTHOR_SIGNER_CERT, signer.der},
              {PACKAGE_INFO_DISTRIBUTOR_SIGNER_CERT, other.der}});
    CCallerInformation *info = As("org.example.app");
    EXPECT_EQ(certtest::OpensslKeyDigest(signer.pem, "sha256"), info->GetSignature(true));
}

TEST_F(CallerInformation, TheSignatureFollowsTheRegistryAtEveryCall)
{
    certtest::TestCert first = certtest::MakeCert(root_.path(), "first");
    certtest::TestCert second = certtest::MakeCert(root_.path(), "second");
    Register("org.example.pkg", "org.example.app", {{PACKAGE_INFO_AUTHOR_SIGNER_CERT, first.der}});
    CCallerInformation *info = As("org.example.app");
    EXPECT_EQ(certtest::OpensslKeyDigest(first.pem, "sha256"), info->GetSignature(true));
    Register("org.example.pkg", "org.example.app", {{PACKAGE_INFO_AUTHOR_SIGNER_CERT, second.der}});
    EXPECT_EQ(certtest::OpensslKeyDigest(second.pem, "sha256"), info->GetSignature(true));
}

TEST_F(CallerInformation, AnUnreadableSignerCertificateGivesAnEmptySignature)
{
    std::ofstream(root_.path() + "/junk.der") << "not a certificate";
    Register("org.example.pkg", "org.example.app",
             {{PACKAGE_INFO_AUTHOR_SIGNER_CERT, root_.path() + "/junk.der"}});
    CCallerInformation *info = As("org.example.app");
    EXPECT_EQ("", info->GetSignature(true));
    EXPECT_TRUE(log().Contains("SSO_API_CHECK_NULL_RETURN. Return (Failed to d2i_X509())"));
}

TEST_F(CallerInformation, AnApplicationWithoutPackageHasAnEmptySignature)
{
    CCallerInformation *info = As("org.example.loose");
    EXPECT_EQ("", info->GetSignature(true));
    EXPECT_TRUE(log().Contains("Failed to package_info_create() : []"));
    EXPECT_TRUE(log().Contains("Failed to m_GetCertInfo()"));
}

TEST_F(CallerInformation, APackageWithoutSignerCertificateThrowsALogicError)
{
    certtest::TestCert other = certtest::MakeCert(root_.path(), "other");
    Register("org.example.pkg", "org.example.app", {{PACKAGE_INFO_AUTHOR_ROOT_CERT, other.der}});
    CCallerInformation *info = As("org.example.app");
    try {
        info->GetSignature(true);
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error &e) {
        EXPECT_STREQ("basic_string: construction from null is not valid", e.what());
    }
}

TEST_F(CallerInformation, TheExportedRequestTurnsTheMissingCertificateIntoMinusOne)
{
    Register("org.example.pkg", "org.example.app");
    As("org.example.app");
    EXPECT_EQ(-1, sso_request_whitelist_accesstoken(
                      "app.id", nullptr, [](void *, int, char *) { return 0; }, nullptr));
    EXPECT_EQ(-1, sso_request_signature_accesstoken(
                      "app.id", nullptr, [](void *, int, char *) { return 0; }, nullptr));
    EXPECT_TRUE(log().Contains("exception: basic_string: construction from null is not valid"));
}

} // namespace
