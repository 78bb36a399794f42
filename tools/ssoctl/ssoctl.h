// ssoctl internals shared by the command files: the parsed command line, the
// output helpers, waiting for a result on the main loop, and the one table of
// commands.
#pragma once

#include <glib.h>
#include <json/json.h>
#include <sso_api/sso_api.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ssoctl {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitTimedOut = 3;

// One run of a command: the global options, the command's own options and
// its positional arguments (the command name itself excluded).
struct Invocation {
    std::string command;
    bool json = false;
    bool show_secrets = false;
    int timeout_ms = 10000;
    std::map<std::string, std::string> values; // "--app-id" -> "tv.app"
    std::set<std::string> flags;               // "--dynamic"
    std::vector<std::string> args;

    bool Has(const std::string &option) const { return values.count(option) != 0; }
    bool Flag(const std::string &option) const { return flags.count(option) != 0; }
    // The option's value, or fallback when it was not given.
    std::string Value(const std::string &option, const std::string &fallback = "") const;
    // The option's value as a C string for an optional argument: nullptr when
    // it was not given.
    const char *Optional(const std::string &option) const;
    // The positional argument i, or "" when there are fewer.
    std::string Arg(size_t i) const { return i < args.size() ? args[i] : std::string(); }
};

// ---- a command of the table ----

struct Command {
    const char *group; // heading in "ssoctl --help"
    const char *name;
    const char *summary;              // one line in "ssoctl --help"
    const char *usage;                // "ssoctl NAME --help": synopsis, what it does, examples
    std::vector<std::string> options; // the command's own options, see OptionTakesValue
    size_t min_args;
    size_t max_args;
    std::vector<std::string> functions; // the library functions the command reaches
    int (*run)(const Invocation &);
};

const std::vector<Command> &Commands();
const Command *FindCommand(const std::string &name);
// Whether a known option takes a value; false for flags. Throws nothing:
// unknown options are reported by the parser.
bool IsKnownOption(const std::string &option);
bool OptionTakesValue(const std::string &option);

// ---- output ----

// The first six characters and an ellipsis, unless shown.
std::string Mask(const std::string &value, bool show);
// Whether a JSON member of this name holds a secret (tokens, codes, GUIDs,
// passwords).
bool IsSecretKey(const std::string &key);
// Masks every text member whose name says it is a secret, at any depth.
void MaskSecrets(Json::Value &v);
// text parsed as JSON when it is a JSON object or array, else the text itself.
Json::Value ParseLoose(const std::string &text);
std::string CompactJson(const Json::Value &v);
std::string PrettyJson(const Json::Value &v);
void PrintLine(const std::string &line);
void PrintJson(const Json::Value &v);
// "ssoctl: message" on stderr; returns code.
int Fail(const std::string &message, int code);
// Why the library's last call on this thread failed, as a person reads it
// ("no bus at unix:path=...", "not signed in", "service answered 6: no such
// account"), and its stable name ("no_bus") for the "error" member of JSON.
std::string LastCause();
std::string LastCauseName();
// "service answered <code>[: <name>]", for a service's answer or result.
std::string ServiceAnswered(int code);
// A failed library call: "<what>: <cause>" on stderr and, in JSON mode,
// {"ok":false,"error":"<name>"}; kExitFailed.
int FailWithCause(const Invocation &inv, const std::string &what);
// A usage error of the command: the message and a pointer to its help.
int UsageError(const Invocation &inv, const std::string &message);
// Takes ownership of a malloc'ed text from the library.
std::string TakeString(char *s);
// A secret given on the command line; "-" reads one line from stdin.
bool ReadSecret(const Invocation &inv, const std::string &option, std::string *out);
// Parses a whole decimal integer within [lo, hi].
bool ParseInt(const std::string &text, long lo, long hi, long *out);
// yes/no, true/false, on/off, 1/0.
bool ParseBool(const std::string &text, bool *out);

// ---- waiting for one asynchronous result ----

// The state of one wait, shared between the library thread that delivers the
// result and the main loop. Kept for the life of the process so that a
// result arriving after a time-out still finds it.
struct Pending {
    GMainLoop *loop = nullptr;
    bool done = false;
    bool timed_out = false;
    int result = 0;
    std::vector<std::string> texts; // the callback's texts, in order
    bool text_null = false;         // the first text was NULL
};

Pending *NewPending();
// Runs the main loop until the result came (kExitOk) or the time-out passed
// (kExitTimedOut, with a message naming what).
int AwaitResult(Pending *p, const Invocation &inv, const std::string &what);

// Callback adapters: each hands what it got to the main loop.
// (user data, result, text): tokens, codes, response texts, account UI.
int OnText(void *user_data, int result, char *text);
// (user data, result) of the device-account token requests.
int OnResultOnly(void *user_data, int result);
// (user data, result, birthday, identify url).
int OnIdentify(void *user_data, int result, char *birthday, char *url);
// (user data, result, profile record): texts in kUserInfoFields order.
int OnUserInfo(void *user_data, int result, sso_user_info info);
// (user data, success, birth date, age, check url): result 0 or -1.
int OnNameCheck(void *user_data, bool success, char *birth_date, char *age, char *check_url);

extern const char *const kUserInfoFields[9];

// ---- shared result reporting ----

// A request the library or the service refused at once: {"ok":false,
// "refused":true,"result":N} in JSON mode and a message; kExitFailed.
int ReportRefused(const Invocation &inv, const std::string &what, int ret);

// Sends a request (send returns the library's answer) and waits for it.
// Returns kExitOk with p filled, or the exit code after reporting a refusal
// or a time-out.
template <typename Send>
int SendAndWait(const Invocation &inv, const std::string &what, Pending **out, Send send)
{
    Pending *p = NewPending();
    int ret = send(p);
    if (ret != 0)
        return ReportRefused(inv, what, ret);
    *out = p;
    return AwaitResult(p, inv, what);
}

// {"ok":ok,"result":result}, for more members to be added.
Json::Value Outcome(bool ok, int result);
// A failed result: {"ok":false,"result":N} in JSON mode and a message.
int ReportFailedResult(const Invocation &inv, const std::string &what, int result,
                       const Json::Value &extra = Json::Value());
// The value of a mandatory option, or a usage error (rc set) when missing.
bool Need(const Invocation &inv, const std::string &option, std::string *out, int *rc);
// The same for a secret, which may be "-" for a line of stdin.
bool NeedSecret(const Invocation &inv, const std::string &option, std::string *out, int *rc);

// A result whose first text is a secret value (token, code) printed under
// key.
int FinishSecretText(const Invocation &inv, Pending *p, const std::string &what,
                     const std::string &key);
// A result whose first text is the service's response (JSON), printed
// indented in text mode (or message instead, when given) and as "response"
// in JSON mode.
int FinishResponse(const Invocation &inv, Pending *p, const std::string &what,
                   const std::string &message = "");
// A result without text: message in text mode.
int FinishPlain(const Invocation &inv, Pending *p, const std::string &what,
                const std::string &message);
// Prints {"ok":...} and message for a function that answers at once with no
// callback (0 accepted).
int ReportImmediate(const Invocation &inv, const std::string &what, int ret,
                    const std::string &message);

// ---- commands (one handler each) ----

int CmdStatus(const Invocation &inv);
int CmdAlive(const Invocation &inv);
int CmdCodes(const Invocation &inv);
int CmdAccounts(const Invocation &inv);
int CmdAccount(const Invocation &inv);
int CmdPolicy(const Invocation &inv);
int CmdWatch(const Invocation &inv);
int CmdReset(const Invocation &inv);
int CmdCbReset(const Invocation &inv);
int CmdGiveProxy(const Invocation &inv);
int CmdCurrentAccountNoti(const Invocation &inv);

int CmdToken(const Invocation &inv);
int CmdAuthCode(const Invocation &inv);
int CmdUserAuthCode(const Invocation &inv);
int CmdDeviceAuthCode(const Invocation &inv);
int CmdOtherDeviceAuthCode(const Invocation &inv);
int CmdTokenWithAuthcode(const Invocation &inv);
int CmdTokenWithPassword(const Invocation &inv);
int CmdWhitelistToken(const Invocation &inv);
int CmdSignatureToken(const Invocation &inv);

int CmdRegister(const Invocation &inv);
int CmdLogout(const Invocation &inv);
int CmdVerifyPassword(const Invocation &inv);
int CmdResetPassword(const Invocation &inv);
int CmdSetPassword(const Invocation &inv);
int CmdSwitch(const Invocation &inv);
int CmdAccountList(const Invocation &inv);
int CmdUserInfo(const Invocation &inv);
int CmdIdentifyUser(const Invocation &inv);
int CmdNamecheck(const Invocation &inv);
int CmdFamilyGroup(const Invocation &inv);
int CmdGroupUsers(const Invocation &inv);
int CmdPartnerAuth(const Invocation &inv);
int CmdCpMapping(const Invocation &inv);

int CmdShow(const Invocation &inv);
int CmdVerifyAccount(const Invocation &inv);
int CmdVerifyPin(const Invocation &inv);
int CmdSetupPin(const Invocation &inv);

} // namespace ssoctl
