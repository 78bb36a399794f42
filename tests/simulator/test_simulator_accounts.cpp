// Accounts and what the simulator publishes about them, read back the way
// the library reads it: the settings store and secure storage through the
// platform libraries, and the data reads over D-Bus.
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <ss_manager.h>
#include <sso_deployment.h>
#include <vconf.h>

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "json_text.h"
#include "sim_fixture.h"
#include "sso_simulator_harness.h"
#include "sso_test_harness.h"

namespace {

using simtest::Ana;
using simtest::Kim;

using ssotest::AccountSpec;
using ssotest::Has;
using ssotest::ParseJson;
using ssotest::RunSimulatorCommand;
using ssotest::SimulatorCommandResult;

constexpr const char *kDocumentItem = "SSO_PUBLICDATA_ID";
constexpr const char *kVersion = "memory/sso/public_data_ver";
constexpr const char *kLoginStatus = "db/sso/login_status";
constexpr const char *kAccountCount = "db/sso/account_count";
constexpr const char *kDisplayName = "db/sso/display_name";
constexpr const char *kCountry2 = "db/sso/sa_user_country_code";
constexpr const char *kCountry3 = "db/sso/sa_user_country_code_3alpha";
constexpr const char *kPrevId = "memory/sso/prev_login_id";
constexpr const char *kPrevGuid = "memory/sso/prev_login_guid";
constexpr const char *kEventExtra = "memory/sso/event_extra";

const std::set<std::string> kPublishedMembers = {
    "account_id",   "account_guid",    "account_uid",       "account_icon_path", "account_auth",
    "user_pin_set", "userCountryCode", "alpha2CountryCode", "displayName",       "userDeviceID",
};

// ---- reading the store as a reader on the device does ----

ss_credential_t Credential()
{
    ss_credential_t credential{};
    const ss_uuid_t uuid = {{SSO_DEPLOY_SS_UUID_WORD0, SSO_DEPLOY_SS_UUID_WORD1}};
    EXPECT_EQ(SS_ERROR_NONE,
              ss_init_credential(&credential, SSO_DEPLOY_SS_MODULE_ID, &uuid, SS_FLAG_INIT));
    return credential;
}

// The item's text, or nullopt with *rc_out set when it cannot be read.
std::optional<std::string> ReadItem(const std::string &item, int *rc_out = nullptr)
{
    const ss_credential_t credential = Credential();
    unsigned char *buffer = nullptr;
    size_t length = 0;
    const int rc =
        ss_read(&buffer, &length, nullptr, nullptr, item.c_str(), &credential, SS_FLAG_READ);
    if (rc_out)
        *rc_out = rc;
    if (rc != SS_ERROR_NONE)
        return std::nullopt;
    std::string text(reinterpret_cast<const char *>(buffer), length);
    ss_free_buffer(buffer);
    return text;
}

std::string DocumentText()
{
    auto text = ReadItem(kDocumentItem);
    EXPECT_TRUE(text.has_value()) << "no readable " << kDocumentItem;
    return text.value_or("");
}

Json::Value Document()
{
    return ParseJson(DocumentText());
}

std::optional<int> Int(const char *key)
{
    int value = 0;
    if (vconf_get_int(key, &value) != VCONF_OK)
        return std::nullopt;
    return value;
}

std::optional<std::string> Str(const char *key)
{
    char *value = vconf_get_str(key);
    if (value == nullptr)
        return std::nullopt;
    std::string out = value;
    free(value);
    return out;
}

std::set<std::string> Members(const Json::Value &object)
{
    const auto names = object.getMemberNames();
    return std::set<std::string>(names.begin(), names.end());
}

// ---- fixtures ----

class SimAccounts : public ssotest::SimulatorTest {
protected:
    int Version() { return ParseJson(sim_.State())["version"].asInt(); }
    std::string SignedIn() { return ParseJson(sim_.State())["signed_in"].asString(); }

    // A server method called directly; the (s) answer or the error text.
    std::string CallData(const char *method, GVariant *params, std::string *error_out = nullptr)
    {
        GError *error = nullptr;
        GVariant *r = g_dbus_connection_call_sync(
            sim_.connection(), ssotest::kSsoServiceName, ssotest::kSsoServicePath,
            ssotest::kSsoServiceInterface, method, params, G_VARIANT_TYPE("(s)"),
            G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
        if (r == nullptr) {
            std::string message = error->message;
            g_error_free(error);
            if (error_out)
                *error_out = message;
            else
                ADD_FAILURE() << method << ": " << message;
            return "";
        }
        const gchar *text = nullptr;
        g_variant_get(r, "(&s)", &text);
        std::string out = text;
        g_variant_unref(r);
        return out;
    }
    // The object name of this test process: the simulator serves only the
    // process an object name names.
    static std::string OwnObject() { return "obj" + std::to_string(getpid()) + "_org.example.app"; }
    std::string PublicAccountData()
    {
        return CallData(
            "sso_get_public_account_data",
            g_variant_new("(sxs)", OwnObject().c_str(), gint64(1), "sso_get_public_account_data"));
    }
    std::string Extracted(const std::string &package, const std::string &key)
    {
        return CallData("sso_get_extracted_application_data",
                        g_variant_new("(sxssss)", OwnObject().c_str(), gint64(1),
                                      "sso_get_extracted_application_data", package.c_str(),
                                      "org.example.app", key.c_str()));
    }

    // The control call's error text ("" when it succeeded).
    template <typename Fn> std::string ErrorOf(Fn fn)
    {
        try {
            fn();
        } catch (const std::exception &e) {
            return e.what();
        }
        return "";
    }
};

// Records what a login_status subscriber finds the moment it is called.
class LoginStatusWatch {
public:
    struct Seen {
        int login_status = -1;
        std::optional<int> version;
        std::string document;
        std::optional<std::string> display_name, country2, country3, prev_id, prev_guid,
            event_extra;
        std::optional<int> account_count;
    };

    LoginStatusWatch() : context_(g_main_context_new())
    {
        // Callbacks run on the context that is the thread default here.
        g_main_context_push_thread_default(context_);
        subscribed_ = vconf_notify_key_changed(kLoginStatus, &LoginStatusWatch::OnChange, this);
        g_main_context_pop_thread_default(context_);
        EXPECT_EQ(VCONF_OK, subscribed_);
    }
    ~LoginStatusWatch()
    {
        if (subscribed_ == VCONF_OK)
            vconf_ignore_key_changed(kLoginStatus, &LoginStatusWatch::OnChange);
        g_main_context_unref(context_);
    }
    LoginStatusWatch(const LoginStatusWatch &) = delete;
    LoginStatusWatch &operator=(const LoginStatusWatch &) = delete;

    // Runs the context until n calls arrived.
    bool WaitFor(std::size_t n)
    {
        return ssotest::WaitUntil([&] {
            while (g_main_context_iteration(context_, FALSE)) {
            }
            return seen_.size() >= n;
        });
    }
    const std::vector<Seen> &seen() const { return seen_; }

private:
    static void OnChange(keynode_t *node, void *data)
    {
        auto *self = static_cast<LoginStatusWatch *>(data);
        // A GLib callback: nothing may escape it.
        try {
            Seen s;
            s.login_status = vconf_keynode_get_int(node);
            s.version = Int(kVersion);
            s.document = ReadItem(kDocumentItem).value_or("");
            s.display_name = Str(kDisplayName);
            s.country2 = Str(kCountry2);
            s.country3 = Str(kCountry3);
            s.prev_id = Str(kPrevId);
            s.prev_guid = Str(kPrevGuid);
            s.event_extra = Str(kEventExtra);
            s.account_count = Int(kAccountCount);
            self->seen_.push_back(std::move(s));
        } catch (...) {
            self->seen_.push_back(Seen());
        }
    }

    GMainContext *context_;
    int subscribed_ = VCONF_ERROR;
    std::vector<Seen> seen_;
};

// The order in which the simulator replaces settings and items. Both stores
// replace a file atomically by renaming a dot-file over "<name>" (bytes
// outside [A-Za-z0-9_.-] written as %XX), and one inotify queue keeps the
// renames of both directories in the order they happened: this shows the
// exact sequence of writes, with no timing involved.
class WriteOrder {
public:
    explicit WriteOrder(const std::string &root) : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        EXPECT_GE(fd_, 0);
        for (const std::string &dir : {root + "/vconf", root + "/secure-storage/items"})
            EXPECT_GE(inotify_add_watch(fd_, dir.c_str(), IN_MOVED_TO), 0) << dir;
    }
    ~WriteOrder() { close(fd_); }
    WriteOrder(const WriteOrder &) = delete;
    WriteOrder &operator=(const WriteOrder &) = delete;

    // The names written since the last call (every write has completed once
    // the control call that caused it returned).
    std::vector<std::string> Take()
    {
        std::vector<std::string> names;
        alignas(inotify_event) char buf[8192];
        for (;;) {
            const ssize_t n = read(fd_, buf, sizeof(buf));
            if (n <= 0)
                break;
            for (char *p = buf; p < buf + n;) {
                const auto *ev = reinterpret_cast<const inotify_event *>(p);
                p += sizeof(inotify_event) + ev->len;
                if (ev->len > 0 && ev->name[0] != '.')
                    names.push_back(Decode(ev->name));
            }
        }
        return names;
    }

private:
    static std::string Decode(const std::string &name)
    {
        std::string out;
        for (std::size_t i = 0; i < name.size(); ++i) {
            if (name[i] == '%' && i + 2 < name.size()) {
                out += static_cast<char>(std::stoi(name.substr(i + 1, 2), nullptr, 16));
                i += 2;
            } else {
                out += name[i];
            }
        }
        return out;
    }

    int fd_;
};

// What one control call wrote, as the device saw it: the keys in the order
// they were written, and what the login_status subscriber found each time it
// was called.
struct Watched {
    std::vector<std::string> order;
    std::vector<LoginStatusWatch::Seen> seen;
};

// Runs op (a control call) on another thread while a subscriber's context
// runs here, so the subscriber is called while the simulator may still be
// writing, as a reader on the device would be. A call the subscriber never
// hears of fails the test and leaves seen empty.
template <typename Fn> Watched Watch(const std::string &root, Fn op)
{
    LoginStatusWatch watch;
    WriteOrder order(root);
    std::string error;
    std::thread t([&] {
        try {
            op();
        } catch (const std::exception &e) {
            error = e.what();
        }
    });
    EXPECT_TRUE(watch.WaitFor(1));
    t.join();
    EXPECT_EQ("", error);
    return {order.Take(), watch.seen()};
}

// ---- start-up ----

TEST_F(SimAccounts, StartUpPublishesTheSignedOutState)
{
    // What a fresh start writes, in order (the first fixture run already
    // created both store directories).
    {
        WriteOrder order(root_.path());
        sim_.Restart();
        EXPECT_EQ((std::vector<std::string>{kDocumentItem, kVersion, kAccountCount, kDisplayName,
                                            kLoginStatus}),
                  order.Take());
    }
    EXPECT_EQ("{\"account_count\":0,\"list\":[]}", DocumentText());
    EXPECT_EQ(std::optional<int>(0), Int(kLoginStatus));
    EXPECT_EQ(std::optional<int>(0), Int(kAccountCount));
    EXPECT_EQ(std::optional<std::string>("{}"), Str(kDisplayName));
    const auto version = Int(kVersion);
    ASSERT_TRUE(version.has_value());
    EXPECT_GE(*version, 1);
    EXPECT_EQ(*version, Version());
    EXPECT_EQ("", SignedIn());
    EXPECT_EQ("{\"accounts\":[],\"active\":\"\",\"version\":" + std::to_string(*version) + "}",
              sim_.Accounts());
}

TEST_F(SimAccounts, ARestartContinuesTheVersion)
{
    const int before = Version();
    sim_.Restart();
    EXPECT_EQ(before + 1, Version());
    EXPECT_EQ(std::optional<int>(before + 1), Int(kVersion));
}

// ---- adding and removing ----

TEST_F(SimAccounts, AddingPublishesTheListInRegistrationOrderAndTheCount)
{
    const int v0 = Version();
    WriteOrder order(root_.path());
    EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF", sim_.AddAccount(Kim()));
    EXPECT_EQ((std::vector<std::string>{kEventExtra, kDocumentItem, kVersion, kAccountCount}),
              order.Take());
    EXPECT_EQ(v0 + 1, Version());
    EXPECT_EQ(std::optional<int>(v0 + 1), Int(kVersion));
    EXPECT_EQ(std::optional<int>(1), Int(kAccountCount));
    EXPECT_EQ(std::optional<std::string>("kim@example.com|0123456789ABCDEF0123456789ABCDEF|ADD|1"),
              Str(kEventExtra));
    EXPECT_EQ("FEDCBA9876543210FEDCBA9876543210", sim_.AddAccount(Ana()));
    EXPECT_EQ(v0 + 2, Version());
    EXPECT_EQ(std::optional<int>(2), Int(kAccountCount));

    const Json::Value doc = Document();
    EXPECT_EQ((std::set<std::string>{"account_count", "list"}), Members(doc));
    EXPECT_EQ(2, doc["account_count"].asInt());
    ASSERT_TRUE(doc["list"].isArray());
    ASSERT_EQ(2u, doc["list"].size());
    const Json::Value &kim = doc["list"][0];
    EXPECT_EQ(kPublishedMembers, Members(kim));
    EXPECT_EQ("kim@example.com", kim["account_id"].asString());
    EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF", kim["account_guid"].asString());
    EXPECT_EQ("4815162342", kim["account_uid"].asString());
    EXPECT_EQ("/opt/sso-test/icons/kim.png", kim["account_icon_path"].asString());
    EXPECT_EQ("UT-kim-token", kim["account_auth"].asString());
    EXPECT_EQ("Y", kim["user_pin_set"].asString());
    EXPECT_EQ("KOR", kim["userCountryCode"].asString());
    EXPECT_EQ("KR", kim["alpha2CountryCode"].asString());
    EXPECT_EQ("Kim J.", kim["displayName"].asString());
    EXPECT_EQ("DEVICE-KIM-1", kim["userDeviceID"].asString());
    const Json::Value &ana = doc["list"][1];
    EXPECT_EQ(kPublishedMembers, Members(ana));
    EXPECT_EQ("ana@example.org", ana["account_id"].asString());
    EXPECT_EQ("Ana Silva", ana["displayName"].asString());
    EXPECT_EQ("N", ana["user_pin_set"].asString());
    EXPECT_EQ("US", ana["alpha2CountryCode"].asString());
    // The password is never published.
    EXPECT_FALSE(Has(DocumentText(), "kim-secret"));
    // Adding signs nobody in.
    EXPECT_EQ(std::optional<int>(0), Int(kLoginStatus));
    EXPECT_EQ("", SignedIn());
}

TEST_F(SimAccounts, GeneratedValuesHaveTheirShapes)
{
    AccountSpec s;
    s.login_id = "lee@example.com";
    s.country2 = "kr";
    const std::string guid = sim_.AddAccount(s);
    ASSERT_EQ(32u, guid.size());
    EXPECT_TRUE(std::all_of(guid.begin(), guid.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
    })) << guid;
    const Json::Value a = Document()["list"][0];
    EXPECT_EQ(guid, a["account_guid"].asString());
    EXPECT_EQ(0u, a["account_auth"].asString().rfind("UT-", 0));
    EXPECT_GT(a["account_auth"].asString().size(), 3u);
    EXPECT_FALSE(a["account_uid"].asString().empty());
    EXPECT_FALSE(a["userDeviceID"].asString().empty());
    EXPECT_EQ("KOR", a["userCountryCode"].asString());
    EXPECT_EQ("KR", a["alpha2CountryCode"].asString());
    EXPECT_EQ("lee", a["displayName"].asString());
    EXPECT_EQ("", a["account_icon_path"].asString());
}

TEST_F(SimAccounts, SeededGenerationIsTheSameOnEveryRun)
{
    sim_.Stop();
    sim_.StartWithArgs({"--seed", "7"});
    AccountSpec s;
    s.login_id = "lee@example.com";
    const std::string first = sim_.AddAccount(s);
    const Json::Value before = ParseJson(sim_.Accounts())["accounts"][0];
    sim_.Restart();
    EXPECT_EQ(first, sim_.AddAccount(s));
    const Json::Value after = ParseJson(sim_.Accounts())["accounts"][0];
    EXPECT_EQ(before["auth"], after["auth"]);
    EXPECT_EQ(before["uid"], after["uid"]);
    EXPECT_EQ(before["device_id"], after["device_id"]);
}

TEST_F(SimAccounts, RemovingRepublishesTheListAndCount)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    const int v0 = Version();
    sim_.RemoveAccount("kim@example.com");
    EXPECT_EQ(v0 + 1, Version());
    EXPECT_EQ(std::optional<int>(1), Int(kAccountCount));
    EXPECT_EQ(
        std::optional<std::string>("kim@example.com|0123456789ABCDEF0123456789ABCDEF|REMOVE|1"),
        Str(kEventExtra));
    Json::Value doc = Document();
    EXPECT_EQ(1, doc["account_count"].asInt());
    ASSERT_EQ(1u, doc["list"].size());
    EXPECT_EQ("ana@example.org", doc["list"][0]["account_id"].asString());
    // By GUID as well.
    sim_.RemoveAccount("FEDCBA9876543210FEDCBA9876543210");
    EXPECT_EQ("{\"account_count\":0,\"list\":[]}", DocumentText());
    EXPECT_EQ(std::optional<int>(0), Int(kAccountCount));
}

TEST_F(SimAccounts, RemovingTheSignedInAccountSignsItOutFirst)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn("kim@example.com");
    const int v0 = Version();
    const Watched w = Watch(root_.path(), [&] { sim_.RemoveAccount("kim@example.com"); });
    ASSERT_FALSE(w.seen.empty());
    // A complete sign-out, then the removal.
    EXPECT_EQ((std::vector<std::string>{kPrevId, kPrevGuid, kEventExtra, kDocumentItem, kVersion,
                                        kDisplayName, kLoginStatus, kEventExtra, kDocumentItem,
                                        kVersion, kAccountCount}),
              w.order);
    EXPECT_EQ(0, w.seen[0].login_status);
    EXPECT_EQ(v0 + 2, Version()); // the sign-out's document, then the removal's
    EXPECT_EQ(std::optional<int>(0), Int(kLoginStatus));
    EXPECT_EQ(std::optional<std::string>("kim@example.com"), Str(kPrevId));
    EXPECT_EQ("", SignedIn());
    const Json::Value doc = Document();
    EXPECT_FALSE(doc.isMember("active_account"));
    EXPECT_EQ(1, doc["account_count"].asInt());
}

TEST_F(SimAccounts, SixAccountsAtMost)
{
    for (int i = 1; i <= 6; ++i) {
        AccountSpec s;
        s.login_id = "user" + std::to_string(i) + "@example.com";
        sim_.AddAccount(s);
    }
    const int v0 = Version();
    AccountSpec seventh;
    seventh.login_id = "user7@example.com";
    const std::string error = ErrorOf([&] { sim_.AddAccount(seventh); });
    EXPECT_TRUE(Has(error, ssosim::kErrorAccountLimit)) << error;
    EXPECT_TRUE(Has(error, "6")) << error;
    EXPECT_EQ(v0, Version());
    EXPECT_EQ(6, Document()["account_count"].asInt());
    EXPECT_EQ(6u, Document()["list"].size());
    EXPECT_EQ(std::optional<int>(6), Int(kAccountCount));
    // Room again after a removal.
    sim_.RemoveAccount("user3@example.com");
    sim_.AddAccount(seventh);
    EXPECT_EQ("user7@example.com", Document()["list"][5]["account_id"].asString());
}

TEST_F(SimAccounts, RefusalsCarryClearErrors)
{
    sim_.AddAccount(Kim());
    const int v0 = Version();
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.AddAccount(Kim()); }), ssosim::kErrorAccountExists));
    AccountSpec clash;
    clash.login_id = "other@example.com";
    clash.guid = "0123456789ABCDEF0123456789ABCDEF";
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.AddAccount(clash); }), ssosim::kErrorAccountExists));
    AccountSpec bad;
    bad.login_id = "bad@example.com";
    bad.country = "KOREA";
    const std::string country_error = ErrorOf([&] { sim_.AddAccount(bad); });
    EXPECT_TRUE(Has(country_error, "InvalidArgs")) << country_error;
    EXPECT_TRUE(Has(country_error, "three-letter")) << country_error;
    bad.country = "XYZ"; // unknown, and no two-letter code given
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.AddAccount(bad); }), "country2"));
    bad.country = std::nullopt;
    bad.user_pin_set = "maybe";
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.AddAccount(bad); }), "user_pin_set"));
    AccountSpec piped;
    piped.login_id = "a|b";
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.AddAccount(piped); }), "InvalidArgs"));
    EXPECT_TRUE(
        Has(ErrorOf([&] { sim_.SignIn("nobody@example.com"); }), ssosim::kErrorNoSuchAccount));
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.RemoveAccount("nobody@example.com"); }),
                    ssosim::kErrorNoSuchAccount));
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.SignOut(); }), ssosim::kErrorNotSignedIn));
    sim_.SignIn("kim@example.com");
    EXPECT_TRUE(
        Has(ErrorOf([&] { sim_.SignIn("kim@example.com"); }), ssosim::kErrorAlreadySignedIn));
    // Only the one sign-in wrote anything.
    EXPECT_EQ(v0 + 1, Version());
}

TEST_F(SimAccounts, AddAccountRefusesUnknownKeysAndTypes)
{
    auto add = [&](const char *dict_text) {
        GVariant *dict =
            g_variant_parse(G_VARIANT_TYPE_VARDICT, dict_text, nullptr, nullptr, nullptr);
        EXPECT_NE(nullptr, dict) << dict_text;
        GError *error = nullptr;
        GVariant *r = g_dbus_connection_call_sync(
            sim_.connection(), ssotest::kSsoServiceName, ssotest::kSimulatorControlPath,
            ssotest::kSimulatorControlInterface, "AddAccount", g_variant_new("(@a{sv})", dict),
            nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
        if (r) {
            g_variant_unref(r);
            return std::string();
        }
        std::string message = error->message;
        g_error_free(error);
        return message;
    };
    const std::string unknown = add("{'login_id': <'a@example.com'>, 'colour': <'red'>}");
    EXPECT_TRUE(Has(unknown, "InvalidArgs")) << unknown;
    EXPECT_TRUE(Has(unknown, "colour")) << unknown;
    const std::string typed = add("{'login_id': <'a@example.com'>, 'uid': <int32 5>}");
    EXPECT_TRUE(Has(typed, "InvalidArgs")) << typed;
    EXPECT_TRUE(Has(add("{'guid': <'G'>}"), "login_id"));
    EXPECT_EQ("", add("{'login_id': <'a@example.com'>}"));
}

// ---- signing in, out, and switching ----

TEST_F(SimAccounts, SignInPublishesTheActiveAccountWithAllTenMembers)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    const int v0 = Version();
    sim_.SignIn("kim@example.com");
    EXPECT_EQ(v0 + 1, Version());
    EXPECT_EQ(std::optional<int>(v0 + 1), Int(kVersion));
    EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF", SignedIn());

    const Json::Value doc = Document();
    EXPECT_EQ((std::set<std::string>{"account_count", "active_account", "list"}), Members(doc));
    EXPECT_EQ(2, doc["account_count"].asInt());
    EXPECT_EQ(2u, doc["list"].size());
    const Json::Value &active = doc["active_account"];
    EXPECT_EQ(kPublishedMembers, Members(active));
    EXPECT_EQ("kim@example.com", active["account_id"].asString());
    EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF", active["account_guid"].asString());
    EXPECT_EQ("4815162342", active["account_uid"].asString());
    EXPECT_EQ("/opt/sso-test/icons/kim.png", active["account_icon_path"].asString());
    EXPECT_EQ("UT-kim-token", active["account_auth"].asString());
    EXPECT_EQ("Y", active["user_pin_set"].asString());
    EXPECT_EQ("KOR", active["userCountryCode"].asString());
    EXPECT_EQ("KR", active["alpha2CountryCode"].asString());
    EXPECT_EQ("Kim J.", active["displayName"].asString());
    EXPECT_EQ("DEVICE-KIM-1", active["userDeviceID"].asString());
    for (const auto &member : kPublishedMembers)
        EXPECT_TRUE(active[member].isString()) << member;
    EXPECT_EQ(doc["list"][0], active);

    EXPECT_EQ(std::optional<int>(1), Int(kLoginStatus));
    EXPECT_EQ(std::optional<int>(2), Int(kAccountCount));
    EXPECT_EQ(std::optional<std::string>(
                  "{\"displayName\":\"Kim J.\",\"firstName\":\"Jisoo\",\"lastName\":"
                  "\"Kim\"}"),
              Str(kDisplayName));
    EXPECT_EQ(std::optional<std::string>("KR"), Str(kCountry2));
    EXPECT_EQ(std::optional<std::string>("KOR"), Str(kCountry3));
    const auto extra = Str(kEventExtra);
    ASSERT_TRUE(extra.has_value());
    EXPECT_EQ(0u, extra->rfind("kim@example.com|0123456789ABCDEF0123456789ABCDEF|LOGIN|", 0))
        << *extra;
}

TEST_F(SimAccounts, LoginStatusIsWrittenLastOnSignIn)
{
    sim_.AddAccount(Kim());
    const int v0 = Version();
    const Watched w = Watch(root_.path(), [&] { sim_.SignIn("kim@example.com"); });
    ASSERT_FALSE(w.seen.empty());
    EXPECT_EQ((std::vector<std::string>{kEventExtra, kDocumentItem, kVersion, kAccountCount,
                                        kDisplayName, kCountry2, kCountry3, kLoginStatus}),
              w.order);
    const auto &s = w.seen.at(0);
    EXPECT_EQ(1, s.login_status);
    // Everything login_status announces was in place when it changed.
    EXPECT_EQ(std::optional<int>(v0 + 1), s.version);
    const Json::Value doc = ParseJson(s.document);
    EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF", doc["active_account"]["account_guid"].asString());
    EXPECT_EQ(std::optional<int>(1), s.account_count);
    EXPECT_TRUE(s.display_name && Has(*s.display_name, "\"displayName\":\"Kim J.\""));
    EXPECT_EQ(std::optional<std::string>("KR"), s.country2);
    EXPECT_EQ(std::optional<std::string>("KOR"), s.country3);
    EXPECT_TRUE(s.event_extra && Has(*s.event_extra, "|LOGIN|"));
}

TEST_F(SimAccounts, SignOutRemovesTheActiveAccountAndSetsThePrevious)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn("ana@example.org");
    const int v0 = Version();
    const Watched w = Watch(root_.path(), [&] { sim_.SignOut(); });
    ASSERT_FALSE(w.seen.empty());
    EXPECT_EQ((std::vector<std::string>{kPrevId, kPrevGuid, kEventExtra, kDocumentItem, kVersion,
                                        kDisplayName, kLoginStatus}),
              w.order);
    const auto &s = w.seen.at(0);
    EXPECT_EQ(0, s.login_status);
    EXPECT_EQ(std::optional<int>(v0 + 1), s.version);
    EXPECT_FALSE(ParseJson(s.document).isMember("active_account"));
    EXPECT_EQ(std::optional<std::string>("{}"), s.display_name);
    EXPECT_EQ(std::optional<std::string>("ana@example.org"), s.prev_id);
    EXPECT_EQ(std::optional<std::string>("FEDCBA9876543210FEDCBA9876543210"), s.prev_guid);

    EXPECT_EQ(v0 + 1, Version());
    EXPECT_EQ("", SignedIn());
    const Json::Value doc = Document();
    EXPECT_EQ((std::set<std::string>{"account_count", "list"}), Members(doc));
    EXPECT_EQ(2, doc["account_count"].asInt());
    EXPECT_EQ(2u, doc["list"].size());
    const auto extra = Str(kEventExtra);
    ASSERT_TRUE(extra.has_value());
    EXPECT_EQ(0u, extra->rfind("ana@example.org|FEDCBA9876543210FEDCBA9876543210|LOGOUT|", 0))
        << *extra;
    EXPECT_EQ(std::optional<int>(0), Int(kLoginStatus));
}

TEST_F(SimAccounts, SwitchingSetsThePreviousToTheOldAccount)
{
    sim_.AddAccount(Kim());
    sim_.AddAccount(Ana());
    sim_.SignIn("kim@example.com");
    const int v0 = Version();
    const Watched w = Watch(root_.path(), [&] { sim_.SignIn("FEDCBA9876543210FEDCBA9876543210"); });
    ASSERT_FALSE(w.seen.empty());
    EXPECT_EQ(
        (std::vector<std::string>{kPrevId, kPrevGuid, kEventExtra, kDocumentItem, kVersion,
                                  kAccountCount, kDisplayName, kCountry2, kCountry3, kLoginStatus}),
        w.order);
    const auto &s = w.seen.at(0);
    EXPECT_EQ(1, s.login_status);
    EXPECT_EQ(std::optional<int>(v0 + 1), s.version);
    EXPECT_EQ("ana@example.org", ParseJson(s.document)["active_account"]["account_id"].asString());
    EXPECT_EQ(std::optional<std::string>("kim@example.com"), s.prev_id);
    EXPECT_EQ(std::optional<std::string>("0123456789ABCDEF0123456789ABCDEF"), s.prev_guid);
    EXPECT_TRUE(
        s.event_extra &&
        s.event_extra->rfind("ana@example.org|FEDCBA9876543210FEDCBA9876543210|SWITCH|", 0) == 0)
        << s.event_extra.value_or("(unset)");
    EXPECT_EQ(std::optional<std::string>("US"), s.country2);
    EXPECT_EQ(std::optional<std::string>("USA"), s.country3);
    EXPECT_EQ(std::optional<std::string>(
                  "{\"displayName\":\"Ana Silva\",\"firstName\":\"Ana\",\"lastName\":\"Silva\"}"),
              s.display_name);
    // One document write for the switch.
    EXPECT_EQ(v0 + 1, Version());
    EXPECT_EQ("FEDCBA9876543210FEDCBA9876543210", SignedIn());
}

TEST_F(SimAccounts, TheVersionBumpsByOnePerDocumentWrite)
{
    std::vector<int> versions = {Version()};
    auto step = [&] {
        versions.push_back(Version());
        EXPECT_EQ(std::optional<int>(versions.back()), Int(kVersion));
    };
    sim_.AddAccount(Kim());
    step();
    sim_.AddAccount(Ana());
    step();
    sim_.SignIn("kim@example.com");
    step();
    sim_.SignIn("ana@example.org");
    step();
    sim_.SignOut();
    step();
    sim_.Publish();
    step();
    sim_.WritePublicData("{}");
    step();
    sim_.RemoveAccount("kim@example.com");
    step();
    for (std::size_t i = 1; i < versions.size(); ++i)
        EXPECT_EQ(versions[i - 1] + 1, versions[i]) << "step " << i;
    // Application data is not the document.
    sim_.SetApplicationData("org.example.app", "G", "k", "v");
    EXPECT_EQ(versions.back(), Version());
}

TEST_F(SimAccounts, PublishWritesTheCurrentStateAgain)
{
    sim_.AddAccount(Kim());
    sim_.SignIn("kim@example.com");
    const std::string doc = DocumentText();
    ASSERT_EQ(VCONF_OK, vconf_set_int(kLoginStatus, 0));
    ASSERT_EQ(VCONF_OK, vconf_set_str(kDisplayName, "stale"));
    const int v0 = Version();
    sim_.Publish();
    EXPECT_EQ(v0 + 1, Version());
    EXPECT_EQ(doc, DocumentText());
    EXPECT_EQ(std::optional<int>(1), Int(kLoginStatus));
    EXPECT_TRUE(Has(Str(kDisplayName).value_or(""), "Kim J."));
}

// ---- the data reads ----

TEST_F(SimAccounts, PublicAccountDataAnswersTheDocument)
{
    EXPECT_EQ(DocumentText(), PublicAccountData());
    sim_.AddAccount(Kim());
    sim_.SignIn("kim@example.com");
    const std::string doc = DocumentText();
    EXPECT_TRUE(Has(doc, "active_account"));
    EXPECT_EQ(doc, PublicAccountData());
    // A scripted payload still wins, and resetting it brings the document back.
    ssotest::Behaviour b;
    b.payloads = std::vector<std::string>{"{\"scripted\":true}"};
    sim_.Configure("sso_get_public_account_data", b);
    EXPECT_EQ("{\"scripted\":true}", PublicAccountData());
    sim_.ResetMethod("sso_get_public_account_data");
    EXPECT_EQ(doc, PublicAccountData());
}

TEST_F(SimAccounts, WritePublicDataWritesTheTextVerbatim)
{
    sim_.AddAccount(Kim());
    const int v0 = Version();
    const std::string raw = "{\"account_count\": 1, \"list\": [ {\"account_id\"";
    sim_.WritePublicData(raw);
    EXPECT_EQ(std::optional<std::string>(raw), ReadItem(kDocumentItem));
    EXPECT_EQ(v0 + 1, Version());
    EXPECT_EQ(std::optional<int>(v0 + 1), Int(kVersion));
    EXPECT_EQ(raw, PublicAccountData());
    sim_.WritePublicData("");
    EXPECT_EQ(std::optional<std::string>(""), ReadItem(kDocumentItem));
    // Publish puts the real state back.
    sim_.Publish();
    EXPECT_EQ(1, Document()["account_count"].asInt());
    EXPECT_EQ(v0 + 3, Version());
}

TEST_F(SimAccounts, ApplicationDataRoundTrip)
{
    const std::string kim = sim_.AddAccount(Kim());
    const std::string ana = sim_.AddAccount(Ana());
    sim_.SetApplicationData("org.example.app", kim, "theme", "dark");
    sim_.SetApplicationData("org.example.app", kim, "level", "7");
    sim_.SetApplicationData("org.example.app", ana, "theme", "light");
    sim_.SetApplicationData("org.example.other", kim, "theme", "solar");

    const auto item = ReadItem("SSO_PUBLICDATA_ID_org.example.app");
    ASSERT_TRUE(item.has_value());
    const Json::Value data = ParseJson(*item);
    EXPECT_EQ((std::set<std::string>{"data"}), Members(data));
    EXPECT_EQ((std::set<std::string>{kim, ana}), Members(data["data"]));
    EXPECT_EQ("dark", data["data"][kim]["theme"].asString());
    EXPECT_EQ("7", data["data"][kim]["level"].asString());
    EXPECT_EQ("light", data["data"][ana]["theme"].asString());
    EXPECT_EQ("{\"data\":{\"" + kim + "\":{\"theme\":\"solar\"}}}",
              ReadItem("SSO_PUBLICDATA_ID_org.example.other").value_or(""));

    // Answered for the signed-in account only.
    EXPECT_EQ("", Extracted("org.example.app", "theme"));
    sim_.SignIn(kim);
    EXPECT_EQ("dark", Extracted("org.example.app", "theme"));
    EXPECT_EQ("7", Extracted("org.example.app", "level"));
    EXPECT_EQ("solar", Extracted("org.example.other", "theme"));
    EXPECT_EQ("", Extracted("org.example.app", "missing"));
    EXPECT_EQ("", Extracted("org.example.none", "theme"));
    sim_.SignIn(ana);
    EXPECT_EQ("light", Extracted("org.example.app", "theme"));
    EXPECT_EQ("", Extracted("org.example.app", "level"));
    sim_.SetApplicationData("org.example.app", ana, "theme", "sepia");
    EXPECT_EQ("sepia", Extracted("org.example.app", "theme"));

    // A scripted payload still wins.
    ssotest::Behaviour b;
    b.payloads = std::vector<std::string>{"scripted"};
    sim_.Configure("sso_get_extracted_application_data", b);
    EXPECT_EQ("scripted", Extracted("org.example.app", "theme"));
    sim_.ResetMethod("sso_get_extracted_application_data");

    sim_.RemoveApplicationData("org.example.app");
    int rc = 0;
    EXPECT_FALSE(ReadItem("SSO_PUBLICDATA_ID_org.example.app", &rc).has_value());
    EXPECT_EQ(SS_ERROR_NO_ITEM, rc);
    EXPECT_EQ("", Extracted("org.example.app", "theme"));
    sim_.RemoveApplicationData("org.example.app"); // nothing left: still fine
    EXPECT_TRUE(ReadItem("SSO_PUBLICDATA_ID_org.example.other").has_value());
    EXPECT_TRUE(Has(ErrorOf([&] { sim_.SetApplicationData("", kim, "k", "v"); }), "InvalidArgs"));
    EXPECT_TRUE(
        Has(ErrorOf([&] { sim_.SetApplicationData("org.example.app", kim, "", "v"); }), "key"));
}

// ---- demo accounts ----

TEST_F(SimAccounts, DemoAccountsArePreloadedSignedOut)
{
    sim_.Stop();
    sim_.StartWithArgs({"--demo-accounts", "--seed", "11"});
    const Json::Value accounts = ParseJson(sim_.Accounts());
    ASSERT_EQ(3u, accounts["accounts"].size());
    EXPECT_EQ("", accounts["active"].asString());
    for (const auto &a : accounts["accounts"]) {
        EXPECT_FALSE(a["active"].asBool());
        const std::string login = a["login_id"].asString();
        EXPECT_TRUE(Has(login, "@example.")) << login;
        EXPECT_FALSE(a["display_name"].asString().empty());
        EXPECT_FALSE(a["password"].asString().empty());
        EXPECT_EQ(32u, a["guid"].asString().size());
    }
    const Json::Value doc = Document();
    EXPECT_EQ(3, doc["account_count"].asInt());
    EXPECT_EQ(3u, doc["list"].size());
    EXPECT_FALSE(doc.isMember("active_account"));
    EXPECT_EQ(std::optional<int>(3), Int(kAccountCount));
    EXPECT_EQ(std::optional<int>(0), Int(kLoginStatus));
    // Seeded: the same GUIDs after a restart.
    sim_.Restart();
    EXPECT_EQ(accounts["accounts"], ParseJson(sim_.Accounts())["accounts"]);
    // And usable like any other account.
    sim_.SignIn(accounts["accounts"][1]["login_id"].asString());
    EXPECT_EQ(std::optional<int>(1), Int(kLoginStatus));
}

// ---- the command line ----

TEST_F(SimAccounts, CliManagesAccounts)
{
    SimulatorCommandResult r = RunSimulatorCommand({"ctl",
                                                    "account",
                                                    "add",
                                                    "--login-id",
                                                    "kim@example.com",
                                                    "--country",
                                                    "KOR",
                                                    "--display-name",
                                                    "Kim J.",
                                                    "--guid",
                                                    "0123456789ABCDEF0123456789ABCDEF",
                                                    "--auth=UT-cli",
                                                    "--pin-set",
                                                    "Y",
                                                    "--first-name",
                                                    "Jisoo",
                                                    "--last-name",
                                                    "Kim",
                                                    "--password",
                                                    "pw",
                                                    "--uid",
                                                    "42",
                                                    "--icon",
                                                    "/i.png",
                                                    "--device-id",
                                                    "D1"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF\n", r.out);
    r = RunSimulatorCommand({"ctl", "account", "add", "--login-id", "ana@example.org"});
    ASSERT_EQ(0, r.status) << r.err;
    const std::string ana = r.out.substr(0, r.out.size() - 1);
    EXPECT_EQ(32u, ana.size());

    r = RunSimulatorCommand({"ctl", "sign-in", "kim@example.com"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.out);
    EXPECT_EQ("kim@example.com", Document()["active_account"]["account_id"].asString());
    EXPECT_EQ("UT-cli", Document()["active_account"]["account_auth"].asString());

    r = RunSimulatorCommand({"ctl", "accounts"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("* kim@example.com 0123456789ABCDEF0123456789ABCDEF KOR Kim J.\n"
              "- ana@example.org " +
                  ana + " USA ana\n",
              r.out);
    // The JSON holds what the control interface holds, with null where it
    // has "" (ana has no names, icon or family group).
    r = RunSimulatorCommand({"ctl", "accounts", "--json"});
    ASSERT_EQ(0, r.status) << r.err;
    const Json::Value listed = ParseJson(r.out);
    const Json::Value held = ParseJson(sim_.Accounts());
    ASSERT_EQ(2u, listed["accounts"].size()) << r.out;
    for (Json::ArrayIndex i = 0; i < 2; ++i)
        for (const std::string &name : held["accounts"][i].getMemberNames()) {
            const Json::Value &want = held["accounts"][i][name];
            if (want.isString() && want.asString().empty())
                EXPECT_TRUE(listed["accounts"][i][name].isNull()) << name << "\n" << r.out;
            else
                EXPECT_EQ(want, listed["accounts"][i][name]) << name;
        }
    EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF", listed["active"].asString());
    EXPECT_EQ(1, std::count(r.out.begin(), r.out.end(), '\n')) << "one document, one line";

    r = RunSimulatorCommand({"ctl", "state"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("signed_in: 0123456789ABCDEF0123456789ABCDEF\nversion: " +
                  ParseJson(sim_.State())["version"].asString() + "\n",
              r.out);
    r = RunSimulatorCommand({"ctl", "--json", "state"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(ParseJson(sim_.State()), ParseJson(r.out));

    r = RunSimulatorCommand({"ctl", "sign-in", ana});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(std::optional<std::string>("kim@example.com"), Str(kPrevId));
    r = RunSimulatorCommand({"ctl", "sign-out"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(std::optional<int>(0), Int(kLoginStatus));
    const int v0 = Version();
    r = RunSimulatorCommand({"ctl", "publish"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(v0 + 1, Version());
    r = RunSimulatorCommand({"ctl", "account", "rm", "kim@example.com"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(1, Document()["account_count"].asInt());
}

TEST_F(SimAccounts, CliSetsApplicationDataAndWritesPublicData)
{
    const std::string kim = sim_.AddAccount(Kim());
    sim_.SignIn(kim);
    SimulatorCommandResult r =
        RunSimulatorCommand({"ctl", "app-data", "set", "org.example.app", kim, "theme", "dark"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("dark", Extracted("org.example.app", "theme"));
    r = RunSimulatorCommand({"ctl", "app-data", "rm", "org.example.app"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", Extracted("org.example.app", "theme"));

    const std::string file = root_.path() + "/broken.json";
    {
        FILE *f = fopen(file.c_str(), "w");
        ASSERT_NE(nullptr, f);
        fputs("{\"account_count\": [", f);
        fclose(f);
    }
    r = RunSimulatorCommand({"ctl", "public-data", "write", file});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("{\"account_count\": [", DocumentText());

    // "-" reads standard input.
    ssotest::CommandResult piped = ssotest::RunCommand(
        {"/bin/sh", "-c", "printf '%s' \"$DOC\" | \"$0\" ctl public-data write -",
         ssotest::ToolPath("sso-simulator")},
        {{"DOC", "not json at all"}});
    EXPECT_EQ(0, piped.status);
    EXPECT_EQ("not json at all", DocumentText());
    EXPECT_EQ("not json at all", PublicAccountData());

    r = RunSimulatorCommand({"ctl", "public-data", "write", root_.path() + "/missing.json"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "missing.json")) << r.err;
}

TEST_F(SimAccounts, CliFailuresExit1WithTheReason)
{
    SimulatorCommandResult r = RunSimulatorCommand({"ctl", "sign-out"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "NotSignedIn")) << r.err;
    r = RunSimulatorCommand({"ctl", "sign-in", "nobody@example.com"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "NoSuchAccount")) << r.err;
    r = RunSimulatorCommand({"ctl", "account", "rm", "nobody@example.com"});
    EXPECT_EQ(1, r.status);
    r = RunSimulatorCommand(
        {"ctl", "account", "add", "--login-id", "x@example.com", "--country", "Korea"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "InvalidArgs")) << r.err;
    for (int i = 0; i < 6; ++i)
        ASSERT_EQ(
            0, RunSimulatorCommand({"ctl", "account", "add", "--login-id", "u" + std::to_string(i)})
                   .status);
    r = RunSimulatorCommand({"ctl", "account", "add", "--login-id", "u6"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(Has(r.err, "AccountLimit")) << r.err;
}

TEST_F(SimAccounts, CliBadUsageExits2WithAHint)
{
    const std::vector<std::vector<std::string>> cases = {
        {"run", "--seed"},
        {"run", "--seed", "x"},
        {"run", "--seed", "-1"},
        {"run", "--seed", "4294967296"},
        {"run", "--demo-accounts", "--bogus"},
        {"ctl", "account"},
        {"ctl", "account", "bogus"},
        {"ctl", "account", "add"},
        {"ctl", "account", "add", "--login-id"},
        {"ctl", "account", "add", "--login-id", "a", "extra"},
        {"ctl", "account", "add", "--login-id", "a", "--bogus", "1"},
        {"ctl", "account", "rm"},
        {"ctl", "accounts", "extra"},
        {"ctl", "accounts", "--json=yes"},
        {"ctl", "sign-in"},
        {"ctl", "sign-in", "a", "b"},
        {"ctl", "sign-out", "a"},
        {"ctl", "state", "a"},
        {"ctl", "publish", "a"},
        {"ctl", "app-data"},
        {"ctl", "app-data", "set", "p", "g", "k"},
        {"ctl", "app-data", "rm"},
        {"ctl", "public-data"},
        {"ctl", "public-data", "write"},
    };
    ssotest::ExpectUsageErrors(cases);
    EXPECT_EQ("{\"accounts\":[],\"active\":\"\",\"version\":" + std::to_string(Version()) + "}",
              sim_.Accounts());
    EXPECT_TRUE(sim_.running());
}

TEST_F(SimAccounts, CliHelpShowsUsageAndExamples)
{
    const std::vector<std::vector<std::string>> cases = {
        {"run", "--help"},
        {"ctl", "account", "--help"},
        {"ctl", "account", "add", "--help"},
        {"ctl", "account", "rm", "--help"},
        {"ctl", "accounts", "--help"},
        {"ctl", "sign-in", "--help"},
        {"ctl", "sign-out", "--help"},
        {"ctl", "state", "--help"},
        {"ctl", "publish", "--help"},
        {"ctl", "app-data", "--help"},
        {"ctl", "app-data", "set", "--help"},
        {"ctl", "app-data", "rm", "--help"},
        {"ctl", "public-data", "--help"},
        {"ctl", "public-data", "write", "-h"},
    };
    for (const auto &args : cases) {
        SimulatorCommandResult r = RunSimulatorCommand(args);
        std::string joined;
        for (const auto &a : args)
            joined += a + " ";
        EXPECT_EQ(0, r.status) << joined;
        EXPECT_TRUE(Has(r.out, "Usage:")) << joined << "\n" << r.out;
        EXPECT_TRUE(Has(r.out, "Example")) << joined << "\n" << r.out;
    }
    EXPECT_TRUE(Has(RunSimulatorCommand({"run", "--help"}).out, "--demo-accounts"));
    EXPECT_TRUE(Has(RunSimulatorCommand({"ctl", "--help"}).out, "account add"));
    // Help never acts.
    EXPECT_EQ("", SignedIn());
    EXPECT_EQ(0u, ParseJson(sim_.Accounts())["accounts"].size());
}

} // namespace
