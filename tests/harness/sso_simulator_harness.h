// Starting and scripting the SSO service simulator from tests.
//
// The simulator (tools/sso-simulator) is a real daemon on the private system
// bus of a BusTest. Tests drive the library against it and script it over its
// control interface through a Simulator object, which talks on a private
// GDBusConnection of its own: the library's shared connection is never
// touched, so scripting cannot disturb what is under test.
//
//   class Login : public ssotest::SimulatorTest {};
//   TEST_F(Login, TokenArrives)
//   {
//       ssotest::Behaviour b;
//       b.payloads = {"AT-fixed"};
//       sim_.Configure("sso_request_access_token", b);
//       ... call the library ...
//       ASSERT_TRUE(sim_.WaitForDeliveries(1));
//       EXPECT_EQ("sso_request_access_token", sim_.Journal().at(0).method);
//   }
//
// A test binary that uses the simulator depends on it being built:
//   add_dependencies(<test target> sso-simulator)
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "../../tools/sso-simulator/bus_names.h"
#include "../../tools/sso-simulator/control_api.h"
#include "../../tools/sso-simulator/result_codes.h"
#include "run_tool.h"
#include "sso_test_harness.h"

namespace ssotest {

// Bus name, object and interfaces the simulator serves: the simulator's own.
inline constexpr const char *kSsoServiceName = ssosim::kServiceBusName;
inline constexpr const char *kSsoServicePath = ssosim::kServicePath;
inline constexpr const char *kSsoServiceInterface = ssosim::kServiceInterface;
inline constexpr const char *kSsoClientNamePrefix = ssosim::kClientBusPrefix;
inline constexpr const char *kSsoClientPath = ssosim::kClientPath;
inline constexpr const char *kSsoClientInterface = ssosim::kClientInterface;
inline constexpr const char *kSsoSignalPath = ssosim::kSignalPath;
inline constexpr const char *kSsoSignalInterface = ssosim::kSignalInterface;
inline constexpr const char *kSimulatorControlPath = ssosim::kControlPath;
inline constexpr const char *kSimulatorControlInterface = ssosim::kControlInterface;

// How the simulator treats requests to one method. Unset fields keep what
// was scripted before (Configure merges); Reset/ResetMethod undo scripting.
// Defaults of an unscripted method: accept 1 (sso_is_account_switching_available:
// 1 with more than one account registered, else 0), result and payloads from
// the simulated state (see ssosim::kResult*), no delays, result delivered, no
// error, answered. A scripted field always wins. The state changes (sign-in,
// tokens issued...) only when the delivered result is 0: a scripted non-zero
// result changes nothing; a dropped result still changes the state; scripted
// payloads are what gets issued and stored.
struct Behaviour {
    std::optional<int32_t> accept; // the (i) answer; anything but 1 = refused, no result
    std::optional<int32_t> result; // "result" of the delivered callback
    // String payloads of the result in order (access_token, response_data,
    // user_id...); for the two (s) methods the first one is the answer.
    std::optional<std::vector<std::string>> payloads;
    std::optional<uint32_t> answer_delay_ms; // answer this late
    std::optional<uint32_t> result_delay_ms; // deliver this long after the answer
    std::optional<bool> drop_result;         // answer, never deliver
    std::optional<std::string> error;        // answer with this D-Bus error ("" = none)
    std::optional<bool> no_answer;           // never answer (the caller times out)
};

// One request the simulator received.
struct JournalEntry {
    std::string sender; // unique bus name of the caller
    std::string method; // server method
    std::string args;   // the argument tuple, g_variant_print(params, TRUE)
};

// One result the simulator sent to a client.
struct DeliveryEntry {
    std::string destination; // unique name of the client connection that asked
    std::string method;      // client method (the request's method_call)
    std::string args;        // the argument tuple, g_variant_print(args, TRUE)
};

// An account to register. Unset fields are generated (guid: 32 uppercase hex
// digits, auth: "UT-<hex>", uid, device_id) or defaulted (country "USA" /
// country2 "US", user_pin_set "N", display_name from the names or the part
// of login_id before '@', the rest ""). StartWithArgs({"--seed", "N"}) gives
// the same generated values on every run.
struct AccountSpec {
    std::string login_id; // required, unique
    std::optional<std::string> guid;
    std::optional<std::string> uid;
    std::optional<std::string> icon_path;
    std::optional<std::string> auth;
    std::optional<std::string> user_pin_set; // "Y" or "N"
    std::optional<std::string> country;      // three letters, e.g. "KOR"
    std::optional<std::string> country2;     // two letters, e.g. "KR"
    std::optional<std::string> display_name;
    std::optional<std::string> first_name;
    std::optional<std::string> last_name;
    std::optional<std::string> device_id;
    std::optional<std::string> password; // for ID/password requests; never published
    // Profile, answered by the profile requests (never published). Defaults:
    // no prefix, birth date "19900101" (YYYYMMDD), a postal code of the
    // country (e.g. "10001" for US, "" for countries without one known), no
    // mobile number, receive_email "N".
    std::optional<std::string> prefix_name;
    std::optional<std::string> birth_date;
    std::optional<std::string> zip_code;
    std::optional<std::string> mobile_num;
    std::optional<std::string> receive_email; // "Y" or "N"
    // Accounts with the same id share a family group, owned by the first of
    // them registered. Default: a group of its own, "FG-" + the first 16
    // digits of the GUID.
    std::optional<std::string> family_group;
};

// The two accounts most suites start from: kim, with a display name, both
// country codes and an icon chosen, and lee, with the simulator's defaults.
inline AccountSpec KimAccount()
{
    AccountSpec kim{"kim@example.com"};
    kim.display_name = "Kim Min";
    kim.country = "KOR";
    kim.country2 = "KR";
    kim.icon_path = "/opt/usr/share/account/kim.png";
    return kim;
}

inline AccountSpec LeeAccount()
{
    return AccountSpec{"lee@example.com"};
}

// What an unscripted request does, decided from the simulated state when its
// result is due (text fields as the library sends them; "HAS_NO_VALUE" means
// absent):
//   access token (also using_authcode, delivered where method_call says):
//       needs someone signed in; "AT." + 32 base64url characters, journaled
//       (Issued) with app id, account GUID and scope. The secret key must be
//       non-empty, and the registered one for a RegisterClient app id. An auth
//       code the simulator issued must be this app's, unrevoked, unredeemed
//       (others are taken on trust).
//   auth codes: "AC." + 32 characters, journaled. Need someone signed in,
//       except the device code (no account) and ID/password (the named
//       account, whose password must match).
//   generate_token_*: the user id is signed in, added first when unknown (ID/
//       password: with that password; known: it must match). response_data
//       {"account_id", "account_guid", "added", "signed_in"[, "delete_flag"]}.
//   register_account: adds the account; "on" signs it in too.
//   perform_logout, verify_password (the signed-in account's password),
//   set_passfw, request_reset_passwd (a registered login id), switch_* (by
//   login id, by GUID, or with the account's own user token "auth"):
//       act on the accounts and publish as the control calls do.
//   request_account_list, get_dynamic_my_account_list: {"account_count",
//       "list": [{"account_id", "account_guid", ..., "active"}]}, no secrets.
//   get_user_info(_v4), identify_current_user_info, get_namecheck_auth_info:
//       the signed-in account's profile (user_id is its uid, auth its user
//       token; age from birth_date).
//   get_user_family_group, get_user_group_users: the access token must be one
//       issued (or scripted and delivered) for this app and account; groups
//       are the accounts sharing family_group.
//   whitelist: a token as above, also stored in "SSO_PUBLICDATA_ID_<package>"
//       under the account's GUID and kSimWhitelistTokenKeyPrefix + app id
//       before the result is sent.
//   sync: is_account_switching_available answers 1 with two or more
//       accounts; request_current_account_noti republishes; sso_reset revokes
//       every issued token and code.
//
// The result codes the simulator delivers when nobody scripted a result, the
// error names it answers refused account operations with, and the table of
// every code with its name are the simulator's own (ssosim::kResult*,
// ssosim::kError*, ssosim::kResultCodeTable in
// tools/sso-simulator/result_codes.h). A refused request gets one of the
// codes, "" in every string payload, and changes nothing.

// The application-data key under which the simulator stores a whitelist token
// for an app id (in "SSO_PUBLICDATA_ID_<package>", under the account's GUID).
inline constexpr const char *kSimWhitelistTokenKeyPrefix =
    "DATA_KEY_NAME_WHILIST_ACCESSTOKEN_RESPONSE_";

// What a finished sso-simulator command printed.
using SimulatorCommandResult = ToolResult;

// Runs "sso-simulator ARGS..." (e.g. {"ctl", "journal"}) to completion with
// stdout and stderr captured; env entries are added to the environment.
SimulatorCommandResult
RunSimulatorCommand(const std::vector<std::string> &args,
                    const std::map<std::string, std::string> &env = {},
                    std::chrono::milliseconds timeout = std::chrono::seconds(30));

// Runs each command line and expects it refused as misuse: exit status 2 and
// a pointer to --help on stderr.
void ExpectUsageErrors(const std::vector<std::vector<std::string>> &commandLines);

class Simulator {
public:
    Simulator() = default;
    // Stops a running simulator.
    ~Simulator();
    Simulator(const Simulator &) = delete;
    Simulator &operator=(const Simulator &) = delete;

    // Spawns ToolPath("sso-simulator") on the current DBUS_SYSTEM_BUS_ADDRESS
    // (env entries are added to its environment) and waits for its "ready"
    // line. Throws std::runtime_error when it exits or is not ready in time.
    // The process is killed by pid when this object goes away or the test
    // process dies.
    void Start(const std::map<std::string, std::string> &env = {},
               std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // The same with options of "sso-simulator run", e.g. {"--demo-accounts"}
    // or {"--seed", "7"}. (Not an overload of Start: Start({{"K", "V"}})
    // would become ambiguous.)
    void StartWithArgs(const std::vector<std::string> &extra_args,
                       const std::map<std::string, std::string> &env = {},
                       std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // SIGTERM, then SIGKILL if it has not exited within grace. Returns the
    // exit status (128 + signal when killed), or -1 when it was not running.
    int Stop(std::chrono::milliseconds grace = std::chrono::seconds(5));
    // Stop and Start with the same environment and arguments: every
    // behaviour, the journal, the deliveries and the accounts start afresh.
    void Restart();
    pid_t pid() const { return child_.pid(); }
    // Started and not exited yet.
    bool running();
    // Exit status of the last run once it ended, else -1.
    int exit_status() const { return exit_status_; }
    // What the simulator printed on stdout so far ("ready\n").
    const std::string &output() const { return child_.output(); }

    // ---- control (each throws std::runtime_error when the call fails) ----

    // Merges behaviour into method's scripting; method "*" scripts the
    // default of every method. Unknown methods are refused.
    void Configure(const std::string &method, const Behaviour &behaviour);
    // Forgets the scripting of one method ("*": of the default).
    void ResetMethod(const std::string &method);
    // Every behaviour back to the default; journal and deliveries cleared.
    void Reset();

    std::vector<JournalEntry> Journal();
    // The journal without the liveness checks the library makes on its own
    // (sso_check_alive): the requests a test caused, and their methods.
    std::vector<JournalEntry> Requests();
    std::vector<std::string> RequestMethods();
    void ClearJournal();
    std::vector<DeliveryEntry> Deliveries();
    void ClearDeliveries();
    // Wait until at least n entries exist; false on time-out.
    bool WaitForJournal(std::size_t n,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10));
    bool WaitForDeliveries(std::size_t n,
                           std::chrono::milliseconds timeout = std::chrono::seconds(10));

    // Emits signal name on kSsoSignalPath / kSsoSignalInterface with the
    // arguments of a GVariant text tuple ("()" for none).
    void EmitSignal(const std::string &name, const std::string &args_text = "()");
    // Calls method on bus_name's client object (kSsoClientPath,
    // kSsoClientInterface) with a GVariant text tuple; returns "" once the
    // client replied, or "<error name>: <message>" for any failure (the
    // client's error, no such name, time-out, and malformed input as
    // "org.freedesktop.DBus.Error.InvalidArgs: ...").
    std::string CallClient(const std::string &bus_name, const std::string &method,
                           const std::string &args_text);
    // "obj<simulator pid>_<app id>": the obj_name of every delivery.
    std::string ObjectName();
    // Whether anyone owns the bus name now (asks the bus, not the simulator;
    // e.g. a client's "org.orvex.tv.ssoservice.ssoclient.<object name>").
    bool NameHasOwner(const std::string &bus_name);
    // The unique name of the connection that owns the bus name now, "" when
    // nobody does (asks the bus).
    std::string NameOwner(const std::string &bus_name);
    // Asks the simulator to exit (status 0) and waits for it.
    int Quit(std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // ---- accounts (each throws std::runtime_error whose message holds the
    // D-Bus error name, e.g. ssosim::kErrorAccountLimit) ----

    // Registers an account (at most six); returns its GUID. Publishes the
    // document and account_count and bumps the version.
    std::string AddAccount(const AccountSpec &spec);
    // By login id or GUID. A signed-in account is signed out first.
    void RemoveAccount(const std::string &login_id_or_guid);
    // Signs in; when another account is signed in, switches.
    void SignIn(const std::string &login_id_or_guid);
    void SignOut();
    // {"accounts": [{"login_id", "guid", "uid", "icon_path", "auth",
    // "user_pin_set", "country", "country2", "display_name", "first_name",
    // "last_name", "device_id", "password", "prefix_name", "birth_date",
    // "zip_code", "mobile_num", "receive_email", "family_group", "active"}...],
    // "active": guid or "", "version": n}
    std::string Accounts();
    // {"signed_in": guid or "", "version": n}
    std::string State();
    // package's item "SSO_PUBLICDATA_ID_<package>" gets value under key for
    // the account guid.
    void SetApplicationData(const std::string &package, const std::string &guid,
                            const std::string &key, const std::string &value);
    void RemoveApplicationData(const std::string &package);
    // text, verbatim, as the public document (version bumped).
    void WritePublicData(const std::string &text);
    // Writes the current state again.
    void Publish();

    // ---- issued tokens and registrations ----

    // {"issued": [{"sequence", "kind" ("access_token", "auth_code" or
    // "whitelist_token"), "value", "method", "app_id", "account_guid" ("" for
    // a device code), "scope" ("" when absent), "package", "extra": {dsc,
    // code_challenge...}, "scripted", "revoked", "redeemed"}...]}, oldest
    // first.
    std::string Issued();
    // Forgets every issued token and code.
    void ClearIssued();
    // Access-token requests for app_id must then carry secret (unregistered
    // app ids take any non-empty secret key).
    void RegisterClient(const std::string &app_id, const std::string &secret);
    // Once any pair is registered, whitelist tokens go only to registered
    // (package, signature) pairs.
    void RegisterWhitelist(const std::string &package, const std::string &signature);

    // The harness's own connection to the system bus (created on first use,
    // re-created after the bus restarted). Owned by the Simulator.
    GDBusConnection *connection();

private:
    GVariant *Call(const char *method, GVariant *params, const char *reply_type);
    // A control call that answers nothing; with a string, that one argument.
    void Command(const char *method, GVariant *params = nullptr);
    void Command(const char *method, const std::string &arg);
    void DropConnection();

    ChildProcess child_;
    std::map<std::string, std::string> env_;
    std::vector<std::string> args_;
    int exit_status_ = -1;
    GDBusConnection *connection_ = nullptr;
    GMainContext *context_ = nullptr; // where connection_ delivers its notices
};

// A BusTest with a simulator running: SetUp starts sim_ on the private bus
// (after the bus and the platform root exist), TearDown stops it.
class SimulatorTest : public BusTest {
protected:
    void SetUp() override;
    void TearDown() override;
    Simulator sim_;
};

} // namespace ssotest
