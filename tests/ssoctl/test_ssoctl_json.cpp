// ssoctl --json in the tools' one style: every member present, null where a
// value is unknown or absent (nobody signed in), the same values as the text.
#include <vconf.h>

#include <string>

#include "ssoctl_test_support.h"

namespace {

using namespace ctltest;

class CtlJson : public CtlTest {};

TEST_F(CtlJson, StatusSignedOutHasNullForTheAccount)
{
    CtlResult r = RunCtl({"status", "--json"});
    ASSERT_EQ(0, r.status) << Show(r);
    const Json::Value v = ParseJson(r.out);
    EXPECT_EQ(Json::Value(false), v["signed_in"]);
    for (const char *name : {"login_id", "guid"}) {
        ASSERT_TRUE(v.isMember(name)) << name << ": " << r.out;
        EXPECT_TRUE(v[name].isNull()) << name << ": " << r.out;
    }
}

TEST_F(CtlJson, AnUnreadableCountIsNullAsTheTextSaysUnknown)
{
    ASSERT_EQ(VCONF_OK, vconf_unset("db/sso/account_count"));
    CtlResult text = RunCtl({"status"});
    EXPECT_NE(std::string::npos, text.out.find("accounts: unknown")) << Show(text);
    CtlResult r = RunCtl({"--json", "status"});
    const Json::Value v = ParseJson(r.out);
    ASSERT_TRUE(v.isMember("account_count")) << r.out;
    EXPECT_TRUE(v["account_count"].isNull()) << r.out;
}

TEST_F(CtlJson, AccountListsEveryFieldNullUntilSomebodySignsIn)
{
    const Json::Value out = ParseJson(RunCtl({"--json", "account"}).out);
    for (const char *name : {"login_id", "guid", "auth_token", "display_name", "user_icon_path"}) {
        ASSERT_TRUE(out.isMember(name)) << name;
        EXPECT_TRUE(out[name].isNull()) << name;
    }
    SignInViewer();
    const Json::Value in = ParseJson(RunCtl({"--json", "account"}).out);
    EXPECT_EQ("viewer@example.com", in["login_id"].asString());
    EXPECT_TRUE(in["display_name"].isString()) << in;
}

} // namespace
