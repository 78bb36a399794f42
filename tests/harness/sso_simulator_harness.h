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

#include "sso_test_harness.h"

namespace ssotest {

// Bus name, object and interfaces the simulator serves.
inline constexpr const char *kSsoServiceName = "org.orvex.tv.ssoservice.server";
inline constexpr const char *kSsoServicePath = "/org/orvex/tv/ssoservice/server";
inline constexpr const char *kSsoServiceInterface = "org.orvex.tv.ssoservice.server.interface";
inline constexpr const char *kSsoClientNamePrefix = "org.orvex.tv.ssoservice.ssoclient.";
inline constexpr const char *kSsoClientPath = "/org/orvex/tv/ssoservice/ssoclient";
inline constexpr const char *kSsoClientInterface = "org.orvex.tv.ssoservice.ssoclient.interface";
inline constexpr const char *kSsoSignalPath = "/org/orvex/tv/ssoservice/signal";
inline constexpr const char *kSsoSignalInterface = "org.orvex.tv.ssoservice.signal";
inline constexpr const char *kSimulatorControlPath = "/org/orvex/tv/ssoservice/simulator";
inline constexpr const char *kSimulatorControlInterface =
    "org.orvex.tv.ssoservice.simulator.Control";

// How the simulator treats requests to one method. Unset fields keep what
// was scripted before (Configure merges); Reset/ResetMethod undo scripting.
// Defaults of an unscripted method: accept 1, result 0, generated payloads,
// no delays, result delivered, no error, answered.
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
    std::string destination; // "org.orvex.tv.ssoservice.ssoclient.<object name>"
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
};

// Error names the simulator answers refused account operations with.
inline constexpr const char *kSimErrorNoSuchAccount =
    "org.orvex.tv.ssoservice.simulator.Error.NoSuchAccount";
inline constexpr const char *kSimErrorAccountExists =
    "org.orvex.tv.ssoservice.simulator.Error.AccountExists";
inline constexpr const char *kSimErrorAccountLimit =
    "org.orvex.tv.ssoservice.simulator.Error.AccountLimit";
inline constexpr const char *kSimErrorNotSignedIn =
    "org.orvex.tv.ssoservice.simulator.Error.NotSignedIn";
inline constexpr const char *kSimErrorAlreadySignedIn =
    "org.orvex.tv.ssoservice.simulator.Error.AlreadySignedIn";

// What a finished sso-simulator command printed.
struct SimulatorCommandResult {
    int status = -1; // exit status, -1 on time-out
    std::string out;
    std::string err;
};

// Runs "sso-simulator ARGS..." (e.g. {"ctl", "journal"}) to completion with
// stdout and stderr captured; env entries are added to the environment.
SimulatorCommandResult
RunSimulatorCommand(const std::vector<std::string> &args,
                    const std::map<std::string, std::string> &env = {},
                    std::chrono::milliseconds timeout = std::chrono::seconds(30));

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
    // Asks the simulator to exit (status 0) and waits for it.
    int Quit(std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // ---- accounts (each throws std::runtime_error whose message holds the
    // D-Bus error name, e.g. kSimErrorAccountLimit) ----

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
    // "last_name", "device_id", "password", "active"}...], "active": guid or
    // "", "version": n}
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

    // The harness's own connection to the system bus (created on first use,
    // re-created after the bus restarted). Owned by the Simulator.
    GDBusConnection *connection();

private:
    GVariant *Call(const char *method, GVariant *params, const char *reply_type);
    void DropConnection();

    ChildProcess child_;
    std::map<std::string, std::string> env_;
    std::vector<std::string> args_;
    int exit_status_ = -1;
    GDBusConnection *connection_ = nullptr;
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
