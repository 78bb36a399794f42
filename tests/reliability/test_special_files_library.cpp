// The library over a platform root holding a FIFO or a device where a
// settings key or the account document belongs: loading it (whose static
// initialisation reads the document) returns, and the getters answer -1 at
// once with a line in the log, instead of blocking on what they read. Each
// run is a child process that loads the built library, with a deadline.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "account_documents.h"
#include "special_files.h"
#include "sso_api/sso_api.h"
#include "sso_test_harness.h"

#ifndef SSO_API_LIBRARY
#error "SSO_API_LIBRARY must name the built libsso_api.so"
#endif

namespace {

using specialfiles::FileMadeBy;
using specialfiles::Kind;
using specialfiles::ReplaceBySpecial;
using specialfiles::RunInChild;

using GetLoginStateFn = int (*)(sso_login_state *);
using GetGuidFn = int (*)(char **);

// Loads the library in this (child) process and calls fn with it; 1000 when
// it could not be loaded. The child ends with the library loaded.
template <typename Fn> int WithLibrary(const char *symbol, int (*call)(Fn))
{
    void *handle = dlopen(SSO_API_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    auto fn = handle != nullptr ? reinterpret_cast<Fn>(dlsym(handle, symbol)) : nullptr;
    return fn != nullptr ? call(fn) : 1000;
}

int LoginState(GetLoginStateFn fn)
{
    sso_login_state state = SSO_LOGEDIN;
    int rc = fn(&state);
    return state == SSO_NOT_LOGIN ? rc : 1002;
}

int Guid(GetGuidFn fn)
{
    char *guid = nullptr;
    int rc = fn(&guid);
    if (guid != nullptr) {
        free(guid);
        return 1003;
    }
    return rc;
}

class SpecialFilesUnderTheLibrary : public ssotest::RootTest,
                                    public ::testing::WithParamInterface<Kind> {
protected:
    void SetUp() override
    {
        RootTest::SetUp();
        setenv("SSO_PLATFORM_APP_ID", "org.example.specialfiles", 1);
        accounts_ = {ssotest::MakeAccount(1)};
        ssotest::SignIn(accounts_, 0);
    }

    // The child's own lines of the log.
    bool ChildLogged(pid_t pid, const std::string &text)
    {
        return !log().LinesWith({" " + std::to_string(pid) + " ", text}).empty();
    }

    std::vector<ssotest::TestAccount> accounts_;
};

TEST_P(SpecialFilesUnderTheLibrary, InPlaceOfTheLoginStateGiveAPromptMinusOne)
{
    ASSERT_EQ(vconf_unset("db/sso/login_status"), VCONF_OK);
    const std::string path = FileMadeBy(root_, [] { ssotest::SetLoginState(1); });
    ASSERT_FALSE(path.empty());
    ReplaceBySpecial(GetParam(), path);

    auto r =
        RunInChild([] { return WithLibrary<GetLoginStateFn>("sso_get_login_state", LoginState); });
    ASSERT_TRUE(r.ended) << "sso_get_login_state blocked";
    EXPECT_EQ(r.value, -1);
    EXPECT_TRUE(ChildLogged(r.pid, "Failed to ICVConf::GetLoginState()")) << log().Text();
}

TEST_P(SpecialFilesUnderTheLibrary,
       InPlaceOfTheAccountDocumentLetTheLibraryLoadAndGiveAPromptMinusOne)
{
    // The document's file, found through the storage's own API: deleted and
    // written again, it is the one file that appears.
    ss_credential_t cred = ssotest::DeploymentCredential();
    ASSERT_EQ(ss_delete("SSO_PUBLICDATA_ID", &cred, 0), SS_ERROR_NONE);
    const std::string document = ssotest::Document(accounts_, 0);
    const std::string path =
        FileMadeBy(root_, [&] { ssotest::WriteItem("SSO_PUBLICDATA_ID", document); });
    ASSERT_FALSE(path.empty()) << "the account document is no file of its own under the root";
    ReplaceBySpecial(GetParam(), path);

    auto r = RunInChild([] { return WithLibrary<GetGuidFn>("sso_get_guid", Guid); });
    ASSERT_TRUE(r.ended) << "loading the library or sso_get_guid blocked";
    EXPECT_EQ(r.value, -1);
    EXPECT_TRUE(ChildLogged(r.pid, "Failed to read data. error(")) << log().Text();
}

INSTANTIATE_TEST_SUITE_P(Platform, SpecialFilesUnderTheLibrary,
                         ::testing::Values(Kind::Fifo, Kind::Device),
                         [](const ::testing::TestParamInfo<Kind> &info) {
                             return info.param == Kind::Fifo ? "Fifo" : "Device";
                         });

} // namespace
