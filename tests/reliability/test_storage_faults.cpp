// Broken local state: account documents that are cut short, tampered with,
// empty, of the wrong shape or very large; settings keys of the wrong type;
// a platform root that is missing or read-only. Every getter answers with its
// failure code and says why in the log, nothing crashes, and the library
// writes nothing it was not asked to write.
#include <fcntl.h>
#include <signal.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "account_documents.h"
#include "reliability_support.h"
#include "sso_api/sso_api.h"
#include "test_files.h"

namespace {

using ssotest::TestAccount;

// ---------------------------------------------------------------- snapshots

struct FileState {
    mode_t mode = 0;
    off_t size = 0;
    long long mtimeNs = 0;
    std::string content;
    bool operator==(const FileState &o) const
    {
        return mode == o.mode && size == o.size && mtimeNs == o.mtimeNs && content == o.content;
    }
};

using Snapshot = std::map<std::string, FileState>;

Snapshot *g_snapshot = nullptr;
size_t g_prefix = 0;

int AddEntry(const char *path, const struct stat *st, int, struct FTW *)
{
    std::string rel = path + std::min(g_prefix, strlen(path));
    if (rel == "/log.txt" || rel.empty())
        return 0;
    FileState f;
    f.mode = st->st_mode;
    f.size = S_ISDIR(st->st_mode) ? 0 : st->st_size;
    f.mtimeNs = static_cast<long long>(st->st_mtim.tv_sec) * 1000000000LL + st->st_mtim.tv_nsec;
    if (S_ISREG(st->st_mode))
        f.content = ssotest::ReadWholeFile(path);
    (*g_snapshot)[rel] = f;
    return 0;
}

// Every file and directory under root but the log, with what is in it.
Snapshot Take(const std::string &root)
{
    Snapshot s;
    g_snapshot = &s;
    g_prefix = root.size();
    nftw(root.c_str(), AddEntry, 16, FTW_PHYS);
    g_snapshot = nullptr;
    return s;
}

std::string Describe(const Snapshot &before, const Snapshot &after)
{
    std::string out;
    for (const auto &e : after) {
        auto it = before.find(e.first);
        if (it == before.end())
            out += "created " + e.first + "\n";
        else if (!(it->second == e.second))
            out += "changed " + e.first + "\n";
    }
    for (const auto &e : before)
        if (after.count(e.first) == 0)
            out += "removed " + e.first + "\n";
    return out;
}

// ------------------------------------------------------------------ getters

// The outcome of one getter: its result and whether it handed out a text.
struct Outcome {
    int result = 0;
    std::string text;
};

// A getter that hands out a calloc'ed text (or nothing).
Outcome TextOf(int (*getter)(char **))
{
    char *text = nullptr;
    Outcome o;
    o.result = getter(&text);
    if (text != nullptr)
        o.text = text;
    free(text);
    return o;
}

Outcome Guid()
{
    return TextOf(sso_get_guid);
}

Outcome AuthToken()
{
    return TextOf(sso_get_auth_token);
}

Outcome Accounts()
{
    return TextOf(sso_get_accounts);
}

Outcome LoginInfo()
{
    sso_login_info_s info;
    memset(&info, 0, sizeof(info));
    Outcome o;
    o.result = sso_get_login_info(&info);
    o.text = info.guid;
    return o;
}

class StorageFaults : public ssotest::RootTest {
protected:
    void SetUp() override
    {
        RootTest::SetUp();
        accounts_ = {ssotest::MakeAccount(1), ssotest::MakeAccount(2)};
        ssotest::SignIn(accounts_, 0);
        vconf_set_int("db/sso/account_count", static_cast<int>(accounts_.size()));
        ASSERT_EQ(Guid().text, accounts_[0].guid) << "the good document does not read";
    }

    // Stores text as the account document and announces it.
    void Publish(const std::string &text) { ssotest::PublishDocument(text); }

    std::string ItemPath() const
    {
        return root_.path() + "/secure-storage/items/SSO_PUBLICDATA_ID";
    }

    std::vector<TestAccount> accounts_;
};

// ---------------------------------------------------------------- documents

struct DocumentCase {
    const char *name;
    // Puts the broken document in place.
    std::function<void(StorageFaults &)> store;
    // The log line that says what went wrong.
    const char *why;
};

void PrintTo(const DocumentCase &c, std::ostream *os)
{
    *os << c.name;
}

class BrokenDocument : public StorageFaults, public ::testing::WithParamInterface<DocumentCase> {
public:
    void PublishText(const std::string &text) { Publish(text); }
    void FlipByteOfTheItem()
    {
        ASSERT_TRUE(ssotest::FlipBits(ItemPath(), 40, 0x20));
        // The service says the data changed; the item no longer authenticates.
        ssotest::AnnouncePublicData();
    }
    std::string GoodDocument() const { return ssotest::Document(accounts_, 0); }
};

TEST_P(BrokenDocument, EveryGetterFailsWithItsCodeAndNothingIsWritten)
{
    const DocumentCase &c = GetParam();
    c.store(*this);
    Snapshot before = Take(root_.path());
    log().Clear();

    Outcome guid = Guid();
    EXPECT_EQ(guid.result, -1);
    EXPECT_EQ(guid.text, "");
    EXPECT_EQ(AuthToken().result, -1);
    // The login record is the cleared one: it is handed out, empty.
    Outcome login = LoginInfo();
    EXPECT_EQ(login.result, 0);
    EXPECT_EQ(login.text, "");
    // The whole document is not available either; an empty text is still
    // handed out, for the caller to free.
    Outcome accounts = Accounts();
    EXPECT_EQ(accounts.result, -1);
    EXPECT_EQ(accounts.text, "");

    EXPECT_TRUE(log().Contains(c.why)) << "no line says what is wrong: " << c.why;
    EXPECT_TRUE(log().Contains("SSO not login, please login first.") ||
                log().Contains("Failed to SSOAPIClientUtil::GetAccountsInfo()"));
    // Secrets of the account stay out of the log whatever went wrong.
    EXPECT_FALSE(log().Contains(accounts_[0].auth));
    EXPECT_FALSE(log().Contains(accounts_[0].guid));
    EXPECT_EQ(Describe(before, Take(root_.path())), "");

    // The next good document is read again: nothing stuck.
    Publish(GoodDocument());
    EXPECT_EQ(Guid().text, accounts_[0].guid);
}

// A document of about 8 MiB: the active account and a long list after it.
std::string HugeDocument(const std::vector<TestAccount> &accounts)
{
    std::string doc = ssotest::Document(accounts, 0);
    std::string filler = ",\"padding\":\"" + std::string(8u << 20, 'p') + "\"}";
    doc.pop_back();
    return doc + filler;
}

INSTANTIATE_TEST_SUITE_P(
    Documents, BrokenDocument,
    ::testing::Values(
        DocumentCase{"Truncated",
                     [](StorageFaults &t) {
                         auto &self = static_cast<BrokenDocument &>(t);
                         std::string doc = self.GoodDocument();
                         self.PublishText(doc.substr(0, doc.size() / 2));
                     },
                     "Failed to parse secure data JSON. err("},
        DocumentCase{"Tampered",
                     [](StorageFaults &t) { static_cast<BrokenDocument &>(t).FlipByteOfTheItem(); },
                     "Failed to read data. error("},
        DocumentCase{"Empty",
                     [](StorageFaults &t) { static_cast<BrokenDocument &>(t).PublishText(""); },
                     "Failed to parse secure data JSON. err("},
        DocumentCase{
            "AnArrayInsteadOfAnObject",
            [](StorageFaults &t) { static_cast<BrokenDocument &>(t).PublishText("[1,2,3]"); },
            "Exception handle by"},
        DocumentCase{"MembersOfTheWrongType",
                     [](StorageFaults &t) {
                         static_cast<BrokenDocument &>(t).PublishText(
                             "{\"account_count\":\"two\",\"active_account\":[\"x\"]}");
                     },
                     "Exception handle by"},
        DocumentCase{"HugeAndNotJson",
                     [](StorageFaults &t) {
                         static_cast<BrokenDocument &>(t).PublishText(std::string(8u << 20, '{'));
                     },
                     "Failed to parse secure data JSON. err("}));

TEST_F(StorageFaults, AnEightMebibyteDocumentIsReadWhole)
{
    const std::string doc = HugeDocument(accounts_);
    Publish(doc);
    Snapshot before = Take(root_.path());
    Outcome guid;
    auto took = reliability::Timed([&] { guid = Guid(); });
    EXPECT_EQ(guid.result, 0);
    EXPECT_EQ(guid.text, accounts_[0].guid);
    // Served from the cache now: one read of the item, not one per call.
    EXPECT_EQ(LoginInfo().text, accounts_[0].guid);
    Outcome accounts = Accounts();
    EXPECT_EQ(accounts.result, 0);
    EXPECT_EQ(accounts.text.size(), doc.size());
    EXPECT_EQ(accounts.text, doc);
    EXPECT_TRUE(log().Contains("accountData length [" + std::to_string(doc.size()) + "]"));
    EXPECT_FALSE(log().Contains(std::string(100, 'p'))) << "the document reached the log";
    EXPECT_LT(took.count(), 5000);
    EXPECT_EQ(Describe(before, Take(root_.path())), "");
}

// ------------------------------------------------- the storage service

// The document changed, but the storage service is gone or hung: the getters
// fail as for an unreadable document, within the client's time-out, say why,
// and read again once the service answers.
TEST_F(StorageFaults, AMissingOrHungStorageServiceFailsTheGettersForAWhileOnly)
{
    setenv("SSO_PLATFORM_SS_TIMEOUT_MS", "300", 1);
    struct Fault {
        const char *name;
        std::function<void(ssotest::PlatformRoot &)> start, end;
        const char *why;
    } faults[] = {
        {"stopped", [](ssotest::PlatformRoot &r) { r.StopStorage(); },
         [](ssotest::PlatformRoot &r) { r.StartStorage(); }, "no storage service at"},
        {"hung", [](ssotest::PlatformRoot &r) { ASSERT_TRUE(r.SuspendStorage()); },
         [](ssotest::PlatformRoot &r) { r.ResumeStorage(); }, "no answer in time from"},
    };
    for (const Fault &f : faults) {
        Publish(ssotest::Document(accounts_, 1));
        f.start(root_);
        log().Clear();
        Outcome guid;
        auto took = reliability::Timed([&] { guid = Guid(); });
        EXPECT_EQ(guid.result, -1) << f.name;
        EXPECT_LT(took.count(), 5000) << f.name << ": the getter was held";
        EXPECT_TRUE(log().Contains(f.why)) << f.name;
        EXPECT_TRUE(log().Contains("Failed to read data. error(-10)")) << f.name;
        f.end(root_);
        EXPECT_EQ(Guid().text, accounts_[1].guid) << f.name;
    }
    unsetenv("SSO_PLATFORM_SS_TIMEOUT_MS");
}

// -------------------------------------------------------------- settings

// Replaces a key by a value of another type, or by a file that is no value.
void StoreWrongType(const std::string &key, const char *type)
{
    vconf_unset(key.c_str());
    if (std::string(type) == "string")
        ASSERT_EQ(vconf_set_str(key.c_str(), "1"), 0);
    else if (std::string(type) == "bool")
        ASSERT_EQ(vconf_set_bool(key.c_str(), 1), 0);
    else
        ASSERT_EQ(vconf_set_int(key.c_str(), 1), 0);
}

TEST_F(StorageFaults, ALoginStateOfAnotherTypeReadsAsSignedOut)
{
    StoreWrongType("db/sso/login_status", "string");
    Snapshot before = Take(root_.path());
    sso_login_state state = SSO_LOGEDIN;
    EXPECT_EQ(sso_get_login_state(&state), -1);
    EXPECT_EQ(state, SSO_NOT_LOGIN);
    EXPECT_TRUE(log().Contains("Failed to get vconf value. key=(db/sso/login_status)"));
    // The getters that need a signed-in user refuse, without reading storage.
    log().Clear();
    EXPECT_EQ(Guid().result, -1);
    EXPECT_TRUE(log().Contains("Not login state"));
    EXPECT_FALSE(log().Contains("accountData length"));
    EXPECT_EQ(Describe(before, Take(root_.path())), "");
}

TEST_F(StorageFaults, ADataVersionOfAnotherTypeLoadsTheDocumentOnce)
{
    StoreWrongType("memory/sso/public_data_ver", "string");
    Snapshot before = Take(root_.path());
    log().Clear();
    EXPECT_EQ(Guid().text, accounts_[0].guid);
    EXPECT_EQ(Guid().text, accounts_[0].guid);
    EXPECT_TRUE(
        log().Contains("Failed to get VCONF_PUBLIC_DATA_VER. Assume that version is changed."));
    EXPECT_EQ(log().Count("accountData length ["), 1) << "read again on every call";
    EXPECT_EQ(Describe(before, Take(root_.path())), "");
}

struct KeyCase {
    const char *key;
    const char *wrongType;
    std::function<int()> read; // the getter's result
    const char *why;
};

void PrintTo(const KeyCase &c, std::ostream *os)
{
    *os << c.key << " as " << c.wrongType;
}

class WrongTypeKey : public StorageFaults, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(WrongTypeKey, FailsLikeAMissingKeyWithALogLine)
{
    const KeyCase &c = GetParam();
    StoreWrongType(c.key, c.wrongType);
    Snapshot before = Take(root_.path());
    log().Clear();
    EXPECT_EQ(c.read(), -1);
    EXPECT_TRUE(log().Contains(c.why)) << c.why;
    EXPECT_EQ(Describe(before, Take(root_.path())), "");
    // A key holding no parsable value at all is the same failure.
    ASSERT_EQ(vconf_unset(c.key), 0);
    const std::string file = root_.path() + "/vconf/" + c.key;
    std::string dir = file.substr(0, file.rfind('/'));
    ASSERT_EQ(system(("mkdir -p '" + dir + "'").c_str()), 0);
    std::ofstream(file) << "i\nnot a number";
    before = Take(root_.path());
    log().Clear();
    EXPECT_EQ(c.read(), -1);
    EXPECT_TRUE(log().Contains(c.why)) << c.why;
    EXPECT_EQ(Describe(before, Take(root_.path())), "");
}

INSTANTIATE_TEST_SUITE_P(
    Keys, WrongTypeKey,
    ::testing::Values(KeyCase{"db/sso/account_count", "string",
                              [] {
                                  int count = 7;
                                  int r = sso_get_account_number(&count);
                                  return count == 0 ? r : -2;
                              },
                              "Failed to ICVConf::GetAccountCount()"},
                      KeyCase{"memory/sso/view_status", "bool",
                              [] {
                                  int state = 7;
                                  int r = sso_get_popup_state(&state);
                                  return state == 0 ? r : -2;
                              },
                              "Failed to ICVConf::GetViewState()"},
                      KeyCase{"db/sso/login_status", "bool",
                              [] {
                                  sso_login_state state = SSO_LOGEDIN;
                                  int r = sso_get_login_state(&state);
                                  return state == SSO_NOT_LOGIN ? r : -2;
                              },
                              "Failed to get vconf value. key=(db/sso/login_status)"}));

// ------------------------------------------------------------- the root

TEST_F(StorageFaults, AMissingRootFailsEveryGetterAndIsNotCreated)
{
    const std::string missing = root_.path() + "/no-such-root";
    setenv("SSO_PLATFORM_ROOT", missing.c_str(), 1);
    log().Clear();

    sso_login_state state = SSO_LOGEDIN;
    EXPECT_EQ(sso_get_login_state(&state), -1);
    EXPECT_EQ(state, SSO_NOT_LOGIN);
    int count = 7;
    EXPECT_EQ(sso_get_account_number(&count), -1);
    EXPECT_EQ(count, 0);
    int popup = 7;
    EXPECT_EQ(sso_get_popup_state(&popup), -1);
    EXPECT_EQ(Guid().result, -1);
    // The document is read without a login check: its read fails.
    Outcome accounts = Accounts();
    EXPECT_EQ(accounts.result, -1);
    EXPECT_EQ(accounts.text, "");
    EXPECT_TRUE(log().Contains("Failed to get vconf value. key=(db/sso/login_status)"));
    EXPECT_TRUE(log().Contains("Failed to GetAccountData()"));

    struct stat st;
    EXPECT_NE(stat(missing.c_str(), &st), 0) << "the missing root was created";
    setenv("SSO_PLATFORM_ROOT", root_.path().c_str(), 1);
}

TEST_F(StorageFaults, AReadOnlyRootIsReadAndNothingIsWritten)
{
    // A new version is announced first, so the document is read again under
    // the read-only root rather than served from this process's cache.
    ssotest::AnnouncePublicData();
    // Read-only for everyone, the log and the storage service's socket
    // excepted. A root user writes anyway, so the getters run in a child that
    // gives up root first.
    ASSERT_EQ(system(("chmod -R a+rX,a-w '" + root_.path() + "'").c_str()), 0);
    ASSERT_EQ(chmod(root_.log_path().c_str(), 0666), 0);
    ASSERT_EQ(chmod((root_.path() + "/secure-storage/socket").c_str(), 0666), 0);
    Snapshot before = Take(root_.path());
    log().Clear();

    const std::string guid = accounts_[0].guid;
    auto child = ssotest::ChildProcess::Fork([guid] {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            return 10;
        if (access(".", W_OK) == 0 && geteuid() == 0)
            return 11;
        sso_login_state state = SSO_NOT_LOGIN;
        if (sso_get_login_state(&state) != 0 || state != SSO_LOGEDIN)
            return 12;
        Outcome g = Guid();
        if (g.result != 0 || g.text != guid)
            return 13;
        int count = 0;
        if (sso_get_account_number(&count) != 0 || count != 2)
            return 14;
        Outcome accounts = Accounts();
        if (accounts.result != 0 || accounts.text.empty())
            return 15;
        return 0;
    });
    EXPECT_EQ(child.Wait(std::chrono::seconds(20)), 0);
    EXPECT_EQ(Describe(before, Take(root_.path())), "");
    ASSERT_EQ(system(("chmod -R u+w '" + root_.path() + "'").c_str()), 0);
}

} // namespace
