// Applications of two packages, each running as its package's user, and an
// application of a third user, against the SSO service (the simulator) and
// the platform's storage service. Each package reads its own whitelist token
// through the library; neither gets the other's, through the library, the
// platform's storage API or the files, whatever it claims to be; the third
// user reads the shared account document. The applications are ssoctl
// processes started as those users (the test runs as root, the service's
// user here, and skips otherwise).
#include <fcntl.h>
#include <package_manager_admin.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "sso_simulator_harness.h"

namespace {

constexpr uid_t kUidA = 70001;
constexpr uid_t kUidB = 70002;
constexpr uid_t kViewer = 70500; // an application of no package

struct Package {
    const char *id;
    const char *app;
    uid_t uid;
    const char *token;
};

const Package kA = {"org.example.a", "org.example.a.tv", kUidA, "WL-TOKEN-OF-A-3f9c1e"};
const Package kB = {"org.example.b", "org.example.b.tv", kUidB, "WL-TOKEN-OF-B-77d0aa"};

struct Outcome {
    int status = -1;
    std::string out;
};

extern "C" char **environ;

// Runs a tool of the build (or a program by absolute path) as the user, with
// env added; nothing but exec runs in the forked child. Its platform log (the
// test's log file is not the user's to write) goes nowhere, or with with_log
// to stdout after what the tool prints, at warning level.
Outcome RunAs(uid_t uid, const std::string &tool, const std::vector<std::string> &args,
              const std::map<std::string, std::string> &env = {}, bool with_log = false)
{
    std::vector<std::string> argv = {tool[0] == '/' ? tool : ssotest::ToolPath(tool)};
    argv.insert(argv.end(), args.begin(), args.end());
    ssotest::ChildProcess child = ssotest::ForkAs({uid, uid, {}}, [&argv, &env, with_log] {
        setenv("SSO_PLATFORM_LOG", with_log ? "stderr" : "none", 1);
        setenv("SSO_PLATFORM_LOG_LEVEL", "warn", 1);
        if (with_log)
            dup2(1, 2);
        for (const auto &kv : env)
            setenv(kv.first.c_str(), kv.second.c_str(), 1);
        std::vector<char *> cargv;
        for (const auto &a : argv)
            cargv.push_back(const_cast<char *>(a.c_str()));
        cargv.push_back(nullptr);
        execve(cargv[0], cargv.data(), environ);
        return 127;
    });
    Outcome run;
    run.status = child.Wait(std::chrono::seconds(30));
    run.out = child.ReadStdout(std::chrono::milliseconds(500));
    return run;
}

class StorageIdentity : public ssotest::SimulatorTest {
protected:
    void SetUp() override
    {
        if (!ssotest::CanSwitchUsers())
            GTEST_SKIP() << "playing other users needs root";
        SimulatorTest::SetUp();
        ssotest::AccountSpec viewer;
        viewer.login_id = "viewer@example.com";
        guid_ = sim_.AddAccount(viewer);
        sim_.SignIn(viewer.login_id);
        for (const Package *p : {&kA, &kB}) {
            const char *apps[] = {p->app};
            ASSERT_EQ(PACKAGE_MANAGER_ERROR_NONE,
                      package_manager_add_package_as(p->id, apps, 1, nullptr, 0, p->uid, nullptr));
            sim_.SetApplicationData(
                p->id, guid_, std::string(ssotest::kSimWhitelistTokenKeyPrefix) + p->app, p->token);
        }
    }

    // ssoctl as the package's application, or as whatever app id it claims.
    static Outcome GetToken(const Package &as, const Package &claimed, bool with_log = false)
    {
        return RunAs(as.uid, "ssoctl",
                     {"--show-secrets", "whitelist-token", "get", "--app-id", claimed.app},
                     {{"SSO_PLATFORM_APP_ID", claimed.app}}, with_log);
    }

    std::string guid_;
};

TEST_F(StorageIdentity, EachPackageReadsItsOwnWhitelistTokenThroughTheLibrary)
{
    for (const Package *p : {&kA, &kB}) {
        Outcome run = GetToken(*p, *p);
        EXPECT_EQ(0, run.status) << p->id;
        EXPECT_EQ(std::string(p->token) + "\n", run.out) << p->id;
    }
}

TEST_F(StorageIdentity, APackageThatClaimsTheOthersApplicationGetsNothing)
{
    // The library believes the claim (the application id is what the
    // process says); the storage service goes by the user and refuses.
    for (const auto &pair : {std::make_pair(&kA, &kB), std::make_pair(&kB, &kA)}) {
        Outcome run = GetToken(*pair.first, *pair.second, true);
        EXPECT_EQ(1, run.status) << pair.first->id;
        // Past the library's own check, refused by the storage service.
        EXPECT_NE(std::string::npos, run.out.find("Failed to read data. error(-9)")) << run.out;
        EXPECT_EQ(std::string::npos, run.out.find(pair.second->token)) << run.out;
        EXPECT_EQ(std::string::npos, run.out.find("WL-TOKEN")) << run.out;
    }
}

TEST_F(StorageIdentity, NeitherReadsTheOthersDataThroughThePlatformOrTheFiles)
{
    const std::string item_b = std::string("SSO_PUBLICDATA_ID_") + kB.id;
    Outcome api = RunAs(kUidA, "sso-platform", {"ss", "get", item_b});
    EXPECT_EQ(1, api.status);
    EXPECT_EQ("", api.out);
    const std::string file = root_.path() + "/secure-storage/items/" + item_b;
    const std::string key = root_.path() + "/secure-storage/device.key";
    Outcome raw = RunAs(kUidA, "/bin/cat", {file, key});
    EXPECT_EQ(1, raw.status) << "a package's process opened the store's files";
    EXPECT_EQ("", raw.out);
    // Its own data, through the platform's API, is there.
    Outcome own =
        RunAs(kUidA, "sso-platform", {"ss", "get", std::string("SSO_PUBLICDATA_ID_") + kA.id});
    EXPECT_EQ(0, own.status);
    EXPECT_NE(std::string::npos, own.out.find(kA.token));
    EXPECT_EQ(std::string::npos, own.out.find(kB.token));
}

TEST_F(StorageIdentity, AnApplicationOfAThirdUserReadsTheSharedAccountDocument)
{
    Outcome guid = RunAs(kViewer, "ssoctl", {"--show-secrets", "account", "guid"});
    EXPECT_EQ(0, guid.status);
    EXPECT_EQ(guid_ + "\n", guid.out);
    Outcome login = RunAs(kViewer, "ssoctl", {"account", "login-id"});
    EXPECT_EQ(0, login.status);
    EXPECT_EQ("viewer@example.com\n", login.out);
    // And nobody's package data.
    for (const Package *p : {&kA, &kB}) {
        Outcome run = GetToken({p->id, p->app, kViewer, p->token}, *p);
        EXPECT_EQ(1, run.status) << p->id;
        EXPECT_EQ(std::string::npos, run.out.find("WL-TOKEN")) << run.out;
    }
}

} // namespace
