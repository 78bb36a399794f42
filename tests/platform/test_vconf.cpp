// The settings store in one process: typed reads and writes, type rules, key
// names, the files on disk and failures of the store itself.
#include <sys/stat.h>
#include <unistd.h>
#include <vconf.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>

#include "sso_test_harness.h"
#include "vconf_test_util.h"

namespace {

using vconftest::IsFileError;
using vconftest::ReadWholeFile;

class Vconf : public ssotest::RootTest {
protected:
    std::string StorePath() const { return root_.path() + "/vconf"; }
};

// ---- round trips ----

class VconfIntRoundTrip : public Vconf, public ::testing::WithParamInterface<int> {};

TEST_P(VconfIntRoundTrip, ReadsBackTheIntItWrote)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("db/test/int", GetParam()));
    int v = 12345;
    ASSERT_EQ(VCONF_OK, vconf_get_int("db/test/int", &v));
    EXPECT_EQ(GetParam(), v);
}

INSTANTIATE_TEST_SUITE_P(Values, VconfIntRoundTrip,
                         ::testing::Values(0, 1, -1, 42, INT_MAX, INT_MIN));

class VconfStringRoundTrip
    : public Vconf,
      public ::testing::WithParamInterface<std::pair<const char *, std::string>> {};

TEST_P(VconfStringRoundTrip, ReadsBackTheStringItWrote)
{
    const std::string &value = GetParam().second;
    ASSERT_EQ(VCONF_OK, vconf_set_str("db/test/str", value.c_str()));
    char *got = vconf_get_str("db/test/str");
    ASSERT_NE(nullptr, got);
    EXPECT_EQ(value, std::string(got));
    free(got);
}

INSTANTIATE_TEST_SUITE_P(
    Values, VconfStringRoundTrip,
    ::testing::Values(std::make_pair("Empty", std::string()),
                      std::make_pair("Word", std::string("hello")),
                      std::make_pair("WithNewlines", std::string("line one\nline two\n\n")),
                      std::make_pair("LooksTyped", std::string("i\n5")),
                      std::make_pair("Utf8", std::string("caf\xc3\xa9 \xe2\x9c\x93")),
                      std::make_pair("Long64KiB", std::string(64 * 1024, 'x') + "end")),
    [](const ::testing::TestParamInfo<std::pair<const char *, std::string>> &info) {
        return std::string(info.param.first);
    });

TEST_F(Vconf, ReadsBackBoolsAsZeroOrOne)
{
    int v = 7;
    ASSERT_EQ(VCONF_OK, vconf_set_bool("db/test/bool", 1));
    ASSERT_EQ(VCONF_OK, vconf_get_bool("db/test/bool", &v));
    EXPECT_EQ(1, v);
    ASSERT_EQ(VCONF_OK, vconf_set_bool("db/test/bool", 0));
    ASSERT_EQ(VCONF_OK, vconf_get_bool("db/test/bool", &v));
    EXPECT_EQ(0, v);
    ASSERT_EQ(VCONF_OK, vconf_set_bool("db/test/bool", 42));
    ASSERT_EQ(VCONF_OK, vconf_get_bool("db/test/bool", &v));
    EXPECT_EQ(1, v);
}

TEST_F(Vconf, OverwritesAValueOfTheSameType)
{
    ASSERT_EQ(VCONF_OK, vconf_set_str("k", "a long first value"));
    ASSERT_EQ(VCONF_OK, vconf_set_str("k", "b"));
    char *got = vconf_get_str("k");
    ASSERT_NE(nullptr, got);
    EXPECT_STREQ("b", got);
    free(got);
}

// ---- missing keys and types ----

TEST_F(Vconf, ReadingAMissingKeyFailsAndLeavesTheValueUntouched)
{
    int v = 12345;
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_get_int("db/test/missing", &v));
    EXPECT_EQ(12345, v);
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_get_bool("db/test/missing", &v));
    EXPECT_EQ(12345, v);
    EXPECT_EQ(nullptr, vconf_get_str("db/test/missing"));
}

enum class Type { Int, Bool, Str };

const char *TypeName(Type t)
{
    return t == Type::Int ? "Int" : t == Type::Bool ? "Bool" : "Str";
}

int Store(const char *key, Type t)
{
    switch (t) {
    case Type::Int:
        return vconf_set_int(key, 7);
    case Type::Bool:
        return vconf_set_bool(key, 1);
    default:
        return vconf_set_str(key, "seven");
    }
}

// Expects key to hold exactly what Store() wrote for type t.
void ExpectStored(const char *key, Type t)
{
    int v = -99;
    switch (t) {
    case Type::Int:
        ASSERT_EQ(VCONF_OK, vconf_get_int(key, &v));
        EXPECT_EQ(7, v);
        break;
    case Type::Bool:
        ASSERT_EQ(VCONF_OK, vconf_get_bool(key, &v));
        EXPECT_EQ(1, v);
        break;
    default: {
        char *s = vconf_get_str(key);
        ASSERT_NE(nullptr, s);
        EXPECT_STREQ("seven", s);
        free(s);
        break;
    }
    }
}

class VconfTypeMismatch : public Vconf,
                          public ::testing::WithParamInterface<std::tuple<Type, Type>> {};

TEST_P(VconfTypeMismatch, ReadingWithAnotherTypeFailsAndLeavesTheValueUntouched)
{
    Type stored = std::get<0>(GetParam());
    Type read = std::get<1>(GetParam());
    ASSERT_EQ(VCONF_OK, Store("db/test/typed", stored));
    int v = 12345;
    switch (read) {
    case Type::Int:
        EXPECT_EQ(VCONF_ERROR_WRONG_TYPE, vconf_get_int("db/test/typed", &v));
        EXPECT_EQ(12345, v);
        break;
    case Type::Bool:
        EXPECT_EQ(VCONF_ERROR_WRONG_TYPE, vconf_get_bool("db/test/typed", &v));
        EXPECT_EQ(12345, v);
        break;
    case Type::Str:
        EXPECT_EQ(nullptr, vconf_get_str("db/test/typed"));
        break;
    }
}

TEST_P(VconfTypeMismatch, WritingAnotherTypeFailsAndKeepsTheValue)
{
    Type stored = std::get<0>(GetParam());
    Type written = std::get<1>(GetParam());
    ASSERT_EQ(VCONF_OK, Store("db/test/typed", stored));
    EXPECT_EQ(VCONF_ERROR_WRONG_TYPE, Store("db/test/typed", written));
    ExpectStored("db/test/typed", stored);
}

TEST_P(VconfTypeMismatch, UnsetLetsTheKeyTakeAnotherType)
{
    Type first = std::get<0>(GetParam());
    Type second = std::get<1>(GetParam());
    ASSERT_EQ(VCONF_OK, Store("db/test/typed", first));
    ASSERT_EQ(VCONF_OK, vconf_unset("db/test/typed"));
    ASSERT_EQ(VCONF_OK, Store("db/test/typed", second));
    ExpectStored("db/test/typed", second);
}

INSTANTIATE_TEST_SUITE_P(AllPairs, VconfTypeMismatch,
                         ::testing::Values(std::make_tuple(Type::Int, Type::Bool),
                                           std::make_tuple(Type::Int, Type::Str),
                                           std::make_tuple(Type::Bool, Type::Int),
                                           std::make_tuple(Type::Bool, Type::Str),
                                           std::make_tuple(Type::Str, Type::Int),
                                           std::make_tuple(Type::Str, Type::Bool)),
                         [](const ::testing::TestParamInfo<std::tuple<Type, Type>> &info) {
                             return std::string(TypeName(std::get<0>(info.param))) + "Then" +
                                    TypeName(std::get<1>(info.param));
                         });

TEST_F(Vconf, UnsetRemovesTheKey)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("k", 1));
    ASSERT_EQ(VCONF_OK, vconf_unset("k"));
    int v = 5;
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_get_int("k", &v));
    EXPECT_EQ(5, v);
}

TEST_F(Vconf, UnsetOfAMissingKeyFails)
{
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_unset("db/test/missing"));
}

TEST_F(Vconf, RejectsANullStringAndNullArguments)
{
    EXPECT_EQ(VCONF_ERROR, vconf_set_str("k", nullptr));
    EXPECT_EQ(nullptr, vconf_get_str("k"));
    EXPECT_NE(VCONF_OK, vconf_get_int("k", nullptr));
    EXPECT_NE(VCONF_OK, vconf_get_bool("k", nullptr));
    EXPECT_NE(VCONF_OK, vconf_set_int(nullptr, 1));
    EXPECT_EQ(nullptr, vconf_get_str(nullptr));
}

// ---- key names and the files on disk ----

class VconfBadKey : public Vconf, public ::testing::WithParamInterface<std::string> {};

TEST_P(VconfBadKey, IsRejectedByEveryCall)
{
    const char *key = GetParam().c_str();
    int v = 3;
    EXPECT_EQ(VCONF_ERROR_WRONG_PREFIX, vconf_set_int(key, 1));
    EXPECT_EQ(VCONF_ERROR_WRONG_PREFIX, vconf_set_str(key, "x"));
    EXPECT_EQ(VCONF_ERROR_WRONG_PREFIX, vconf_get_int(key, &v));
    EXPECT_EQ(3, v);
    EXPECT_EQ(nullptr, vconf_get_str(key));
    EXPECT_EQ(VCONF_ERROR_WRONG_PREFIX, vconf_unset(key));
}

INSTANTIATE_TEST_SUITE_P(Names, VconfBadKey,
                         ::testing::Values(std::string(), std::string("a\nb"),
                                           std::string("tab\there"), std::string(256, 'k'),
                                           std::string(248, 'k'),
                                           // Encodes past the file name limit.
                                           std::string(100, '/'), std::string("del\x7f")));

class VconfOddKey : public Vconf, public ::testing::WithParamInterface<std::string> {};

TEST_P(VconfOddKey, RoundTripsUnderItsOwnName)
{
    const std::string &key = GetParam();
    ASSERT_EQ(VCONF_OK, vconf_set_int(key.c_str(), 11));
    int v = 0;
    ASSERT_EQ(VCONF_OK, vconf_get_int(key.c_str(), &v));
    EXPECT_EQ(11, v);
    // Lives in the flat store, visible (no leading dot) and not a directory.
    struct stat st;
    ASSERT_EQ(0, stat(StorePath().c_str(), &st));
    ASSERT_TRUE(S_ISDIR(st.st_mode));
    ASSERT_EQ(VCONF_OK, vconf_unset(key.c_str()));
    EXPECT_NE(VCONF_OK, vconf_get_int(key.c_str(), &v));
}

INSTANTIATE_TEST_SUITE_P(Names, VconfOddKey,
                         ::testing::Values(std::string("."), std::string(".."),
                                           std::string(".hidden"), std::string("a b/c%d"),
                                           std::string("memory/private/x:y"),
                                           std::string("caf\xc3\xa9"),
                                           // The longest name that fits once encoded.
                                           std::string(247, 'k')));

TEST_F(Vconf, StoresEachKeyAsOneFlatFileWithAnEncodedName)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("db/sso/login_status", 5));
    ASSERT_EQ(VCONF_OK, vconf_set_bool("db/sso/enabled", 1));
    ASSERT_EQ(VCONF_OK, vconf_set_str("db/sso/user name", "Jane\nDoe"));
    EXPECT_EQ("i\n5", ReadWholeFile(StorePath() + "/db%2Fsso%2Flogin_status"));
    EXPECT_EQ("b\n1", ReadWholeFile(StorePath() + "/db%2Fsso%2Fenabled"));
    EXPECT_EQ("s\nJane\nDoe", ReadWholeFile(StorePath() + "/db%2Fsso%2Fuser%20name"));
    struct stat st;
    ASSERT_EQ(0, stat((StorePath() + "/db%2Fsso%2Flogin_status").c_str(), &st));
    EXPECT_EQ(0644u, st.st_mode & 0777u);
    EXPECT_NE(0, stat((StorePath() + "/db").c_str(), &st));
}

// Keys that name the account holder are for the applications group only.
TEST_F(Vconf, KeysThatIdentifyTheAccountHolderAreNotWorldReadable)
{
    for (const char *key : {"memory/sso/prev_login_guid", "memory/sso/prev_login_id",
                            "memory/sso/event_extra", "db/sso/display_name"}) {
        ASSERT_EQ(VCONF_OK, vconf_set_str(key, "someone"));
        ASSERT_EQ(VCONF_OK, vconf_set_str(key, "someone else")); // a replacement keeps it
        std::string name = key;
        for (std::string::size_type at; (at = name.find('/')) != std::string::npos;)
            name.replace(at, 1, "%2F");
        struct stat st;
        ASSERT_EQ(0, stat((StorePath() + "/" + name).c_str(), &st)) << key;
        EXPECT_EQ(0640u, st.st_mode & 0777u) << key;
    }
    ASSERT_EQ(VCONF_OK, vconf_set_str("memory/sso/prev_login_guid_x", "not one of them"));
    struct stat st;
    ASSERT_EQ(0, stat((StorePath() + "/memory%2Fsso%2Fprev_login_guid_x").c_str(), &st));
    EXPECT_EQ(0644u, st.st_mode & 0777u);
}

TEST_F(Vconf, OnlyTheApplicationsGroupReadsThemWhenTheDirectoryIsItsGroups)
{
    if (!ssotest::CanSwitchUsers())
        GTEST_SKIP() << "playing other users needs root";
    constexpr gid_t kApps = 70999;
    // As the platform's installer sets up the settings store.
    ASSERT_EQ(VCONF_OK, vconf_set_int("db/sso/login_status", 1));
    ASSERT_EQ(0, chown(StorePath().c_str(), 0, kApps));
    ASSERT_EQ(0, chmod(StorePath().c_str(), 02755));
    ASSERT_EQ(VCONF_OK, vconf_set_str("memory/sso/prev_login_guid", "GUID-OF-THE-LAST-ONE"));
    auto read = [] {
        char *guid = vconf_get_str("memory/sso/prev_login_guid");
        int state = 0;
        int rc = (guid && std::string(guid) == "GUID-OF-THE-LAST-ONE" ? 1 : 0) |
                 (vconf_get_int("db/sso/login_status", &state) == VCONF_OK && state == 1 ? 2 : 0);
        free(guid);
        return rc;
    };
    ssotest::ChildProcess app = ssotest::ForkAs({70001, 70001, {kApps}}, read);
    EXPECT_EQ(3, app.Wait()) << "an application reads both";
    ssotest::ChildProcess other = ssotest::ForkAs({70500, 70500, {}}, [read] {
        int perm = VCONF_OK;
        char *guid = vconf_get_str("memory/sso/prev_login_guid");
        free(guid);
        int v = 0;
        perm = vconf_get_int("memory/sso/prev_login_guid", &v);
        return read() | (perm == VCONF_ERROR_FILE_PERM ? 4 : 0);
    });
    EXPECT_EQ(2 | 4, other.Wait()) << "another user reads the login state only";
}

TEST_F(Vconf, ReadsAValueWrittenByHandInTheStoreFormat)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("seed", 0));
    std::ofstream(StorePath() + "/by%20hand") << "i\n-17\n";
    int v = 0;
    ASSERT_EQ(VCONF_OK, vconf_get_int("by hand", &v));
    EXPECT_EQ(-17, v);
}

TEST_F(Vconf, ACorruptFileReadsAsAnErrorAndCanBeOverwritten)
{
    ASSERT_EQ(VCONF_OK, vconf_set_int("seed", 0));
    std::ofstream(StorePath() + "/broken") << "i\nnot a number";
    int v = 4;
    EXPECT_NE(VCONF_OK, vconf_get_int("broken", &v));
    EXPECT_EQ(4, v);
    std::ofstream(StorePath() + "/broken", std::ios::trunc) << "garbage";
    EXPECT_NE(VCONF_OK, vconf_get_int("broken", &v));
    EXPECT_EQ(nullptr, vconf_get_str("broken"));
    ASSERT_EQ(VCONF_OK, vconf_set_int("broken", 8));
    ASSERT_EQ(VCONF_OK, vconf_get_int("broken", &v));
    EXPECT_EQ(8, v);
}

// ---- failures of the store ----

TEST_F(Vconf, AMissingRootGivesCleanReadErrors)
{
    std::string missing = root_.path() + "/does/not/exist";
    setenv("SSO_PLATFORM_ROOT", missing.c_str(), 1);
    int v = 9;
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_get_int("k", &v));
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_get_bool("k", &v));
    EXPECT_EQ(9, v);
    EXPECT_EQ(nullptr, vconf_get_str("k"));
    EXPECT_EQ(VCONF_ERROR_FILE_NO_ENT, vconf_unset("k"));
    setenv("SSO_PLATFORM_ROOT", root_.path().c_str(), 1);
}

TEST_F(Vconf, AFirstWriteCreatesAMissingRoot)
{
    std::string fresh = root_.path() + "/fresh/root";
    setenv("SSO_PLATFORM_ROOT", fresh.c_str(), 1);
    EXPECT_EQ(VCONF_OK, vconf_set_int("k", 3));
    setenv("SSO_PLATFORM_ROOT", root_.path().c_str(), 1);
    EXPECT_EQ("i\n3", ReadWholeFile(fresh + "/vconf/k"));
}

TEST_F(Vconf, AnUnwritableStoreGivesCleanWriteErrors)
{
    vconftest::MakeStoreUnwritable(root_.path());
    int rc = vconf_set_int("k", 1);
    EXPECT_TRUE(IsFileError(rc)) << rc;
    rc = vconf_set_bool("k", 1);
    EXPECT_TRUE(IsFileError(rc)) << rc;
    rc = vconf_set_str("k", "v");
    EXPECT_TRUE(IsFileError(rc)) << rc;
    rc = vconf_unset("k");
    EXPECT_TRUE(IsFileError(rc)) << rc;
    int v = 6;
    EXPECT_NE(VCONF_OK, vconf_get_int("k", &v));
    EXPECT_EQ(6, v);
    EXPECT_EQ(nullptr, vconf_get_str("k"));
}

// ---- key nodes ----

TEST_F(Vconf, KeynodeGettersTolerateANullNode)
{
    EXPECT_EQ(nullptr, vconf_keynode_get_name(nullptr));
    EXPECT_EQ(-1, vconf_keynode_get_type(nullptr));
    EXPECT_EQ(-1, vconf_keynode_get_int(nullptr));
    EXPECT_EQ(-1, vconf_keynode_get_bool(nullptr));
    EXPECT_EQ(nullptr, vconf_keynode_get_str(nullptr));
}

} // namespace
