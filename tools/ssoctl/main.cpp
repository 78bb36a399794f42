// ssoctl: a command-line client of the SSO service built on libsso_api.
//
// Results of asynchronous requests arrive on the library's own thread; they
// are handed to the GLib main loop of the default context before anything is
// printed.
#include <glib-unix.h>
#include <glib.h>
#include <json/json.h>
#include <sso_api/sso_api.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitTimedOut = 3;

#ifndef SSOCTL_VERSION
#define SSOCTL_VERSION "0"
#endif

struct Options {
    bool json = false;
    bool show_secrets = false;
    int timeout_ms = 10000;
    std::string app_id;
    std::string secret;
    std::string scope;
};

// ---- output helpers ----

std::string Mask(const std::string &value, bool show)
{
    if (show || value.empty())
        return value;
    return value.substr(0, 6) + "\xE2\x80\xA6";
}

std::string JsonQuote(const std::string &s)
{
    return Json::valueToQuotedString(s.c_str());
}

// One flat JSON object built field by field; values are already encoded.
class JsonObject {
public:
    JsonObject &Str(const std::string &key, const std::string &value)
    {
        fields_.emplace_back(key, JsonQuote(value));
        return *this;
    }
    JsonObject &Raw(const std::string &key, const std::string &encoded)
    {
        fields_.emplace_back(key, encoded);
        return *this;
    }
    JsonObject &Int(const std::string &key, long value) { return Raw(key, std::to_string(value)); }
    JsonObject &Bool(const std::string &key, bool value)
    {
        return Raw(key, value ? "true" : "false");
    }
    std::string Text() const
    {
        std::string out = "{";
        for (size_t i = 0; i < fields_.size(); ++i) {
            if (i)
                out += ",";
            out += JsonQuote(fields_[i].first) + ":" + fields_[i].second;
        }
        return out + "}";
    }

private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

void PrintLine(const std::string &line)
{
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

int Fail(const std::string &message, int code)
{
    std::fprintf(stderr, "ssoctl: %s\n", message.c_str());
    return code;
}

std::string TakeString(char *s)
{
    std::string out = s ? s : "";
    std::free(s);
    return out;
}

// ---- a small JSON reader, enough to pretty-print and mask the account document ----

bool IsSecretKey(const std::string &key)
{
    std::string lower;
    for (char c : key)
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower.find("auth") != std::string::npos || lower.find("token") != std::string::npos ||
           lower.find("password") != std::string::npos;
}

// Masks every text member whose name says it is a secret, at any depth.
void MaskSecrets(Json::Value &v)
{
    if (v.isObject()) {
        for (const std::string &name : v.getMemberNames()) {
            Json::Value &member = v[name];
            if (member.isString() && IsSecretKey(name))
                member = Mask(member.asString(), false);
            else
                MaskSecrets(member);
        }
    } else if (v.isArray()) {
        for (Json::Value &item : v)
            MaskSecrets(item);
    }
}

// ---- waiting for one callback on the main loop ----

// Shared between the library thread and the main loop; kept for the life of
// the process (PendingStates), so a callback that arrives after a time-out
// still finds it alive.
struct Pending {
    GMainLoop *loop = nullptr;
    bool done = false;
    bool timed_out = false;
    int result = 0;
    std::string payload;
};

struct Delivery {
    Pending *pending;
    int result;
    std::string payload;
};

gboolean DeliverOnLoop(gpointer data)
{
    std::unique_ptr<Delivery> d(static_cast<Delivery *>(data));
    Pending *p = d->pending;
    if (p->done || p->timed_out)
        return G_SOURCE_REMOVE;
    p->done = true;
    p->result = d->result;
    p->payload = std::move(d->payload);
    g_main_loop_quit(p->loop);
    return G_SOURCE_REMOVE;
}

int HandOver(void *user_data, int result, const char *payload)
{
    auto *d = new Delivery{static_cast<Pending *>(user_data), result, payload ? payload : ""};
    g_main_context_invoke(nullptr, DeliverOnLoop, d);
    return 0;
}

int OnText(void *user_data, int result, char *text)
{
    return HandOver(user_data, result, text);
}

gboolean OnTimeout(gpointer data)
{
    auto *p = static_cast<Pending *>(data);
    if (!p->done) {
        p->timed_out = true;
        g_main_loop_quit(p->loop);
    }
    return G_SOURCE_REMOVE;
}

// Every wait's state lives as long as the process, since a result may still
// arrive after its time-out; it stays reachable from here, not leaked.
std::vector<Pending *> &PendingStates()
{
    static auto *all = new std::vector<Pending *>();
    return *all;
}

Pending *NewPending()
{
    auto *p = new Pending;
    p->loop = g_main_loop_new(nullptr, FALSE);
    PendingStates().push_back(p);
    return p;
}

// Runs the loop until the callback came or the time ran out; exit code.
int AwaitResult(Pending *p, const Options &o, const char *what)
{
    guint timer = g_timeout_add(static_cast<guint>(o.timeout_ms), OnTimeout, p);
    g_main_loop_run(p->loop);
    if (!p->timed_out)
        g_source_remove(timer);
    if (p->timed_out)
        return Fail(std::string(what) + ": timed out after " + std::to_string(o.timeout_ms) +
                        " ms waiting for the result",
                    kExitTimedOut);
    return kExitOk;
}

// ---- usage ----

const char *kMainUsage =
    "usage: ssoctl [--json] [--show-secrets] <command> [options]\n"
    "\n"
    "Commands:\n"
    "  status      service reachability, login state and the signed-in account\n"
    "  token       request an access token\n"
    "  auth-code   request an authorization code\n"
    "  logout      sign the current user out\n"
    "  accounts    print the account document\n"
    "  watch       print login state changes until interrupted\n"
    "\n"
    "Global options:\n"
    "  --json          one JSON object per result on stdout\n"
    "  --show-secrets  do not mask GUIDs, tokens and codes\n"
    "  --timeout MS    how long to wait for a result (default 10000)\n"
    "  --help          this text (\"ssoctl <command> --help\" for a command)\n"
    "  --version       print the version\n"
    "\n"
    "Exit codes: 0 success, 1 refused or failed, 2 bad usage, 3 timed out.\n"
    "Example: ssoctl token --app-id my.app --secret s3cr3t --scope profile\n";

const std::map<std::string, std::string> &CommandUsage()
{
    static const std::map<std::string, std::string> usage = {
        {"status", "usage: ssoctl status [--json] [--show-secrets]\n"
                   "Checks that the service answers and prints the login state, the number\n"
                   "of accounts and, when signed in, the login id and (masked) GUID.\n"
                   "Example: ssoctl status --show-secrets\n"},
        {"token", "usage: ssoctl token --app-id ID --secret KEY [--scope S] [--timeout MS]\n"
                  "                    [--json] [--show-secrets]\n"
                  "Requests an access token for the signed-in user and waits for it.\n"
                  "Example: ssoctl token --app-id my.app --secret s3cr3t --scope profile\n"},
        {"auth-code", "usage: ssoctl auth-code --app-id ID [--scope S] [--timeout MS]\n"
                      "                        [--json] [--show-secrets]\n"
                      "Requests an authorization code for the signed-in user.\n"
                      "Example: ssoctl auth-code --app-id my.app --scope profile\n"},
        {"logout", "usage: ssoctl logout [--timeout MS] [--json]\n"
                   "Signs the current user out and waits for the outcome.\n"
                   "Example: ssoctl logout\n"},
        {"accounts", "usage: ssoctl accounts [--json]\n"
                     "Prints the account document as indented JSON, secrets masked.\n"
                     "Example: ssoctl accounts\n"},
        {"watch", "usage: ssoctl watch [--json] [--show-secrets]\n"
                  "Prints \"watching\", then one line per login state change until\n"
                  "SIGINT or SIGTERM.\n"
                  "Example: ssoctl watch --json\n"},
    };
    return usage;
}

// ---- commands ----

int CmdStatus(const Options &o)
{
    bool alive = sso_check_alive() == 0;
    sso_login_state state = SSO_NOT_LOGIN;
    bool state_ok = sso_get_login_state(&state) == 0;
    int count = 0;
    bool count_ok = sso_get_account_number(&count) == 0;
    bool signed_in = state_ok && state == SSO_LOGEDIN;
    std::string login_id, guid;
    if (signed_in) {
        char *s = nullptr;
        if (sso_get_login_user_id(&s) == 0)
            login_id = TakeString(s);
        s = nullptr;
        if (sso_get_guid(&s) == 0)
            guid = TakeString(s);
    }
    if (o.json) {
        JsonObject j;
        j.Bool("alive", alive).Bool("signed_in", signed_in);
        if (count_ok)
            j.Int("account_count", count);
        if (signed_in)
            j.Str("login_id", login_id).Str("guid", Mask(guid, o.show_secrets));
        PrintLine(j.Text());
    } else {
        PrintLine(std::string("service: ") + (alive ? "alive" : "not answering"));
        PrintLine(std::string("state: ") + (!state_ok   ? "unknown"
                                            : signed_in ? "signed in"
                                                        : "signed out"));
        PrintLine("accounts: " + (count_ok ? std::to_string(count) : std::string("unknown")));
        if (signed_in) {
            PrintLine("login id: " + login_id);
            PrintLine("guid: " + Mask(guid, o.show_secrets));
        }
    }
    if (!alive)
        return Fail("the SSO service did not answer", kExitFailed);
    return state_ok ? kExitOk : Fail("cannot read the login state", kExitFailed);
}

int FinishText(Pending *p, const Options &o, const char *what, const char *key)
{
    int rc = AwaitResult(p, o, what);
    if (rc != kExitOk)
        return rc;
    if (p->result != 0) {
        if (o.json)
            PrintLine(JsonObject().Bool("ok", false).Int("result", p->result).Text());
        return Fail(std::string(what) + " failed with result " + std::to_string(p->result),
                    kExitFailed);
    }
    std::string shown = Mask(p->payload, o.show_secrets);
    if (o.json)
        PrintLine(JsonObject().Bool("ok", true).Int("result", 0).Str(key, shown).Text());
    else
        PrintLine(shown);
    return kExitOk;
}

int NeedAppId(const Options &o, const char *cmd)
{
    if (o.app_id.empty())
        return Fail(std::string(cmd) + ": --app-id is required", kExitUsage);
    return kExitOk;
}

int CmdToken(const Options &o)
{
    if (int rc = NeedAppId(o, "token"))
        return rc;
    if (o.secret.empty())
        return Fail("token: --secret is required", kExitUsage);
    Pending *p = NewPending();
    if (sso_request_access_token_with_scope(o.app_id.c_str(), o.secret.c_str(),
                                            o.scope.empty() ? nullptr : o.scope.c_str(), OnText,
                                            p) != 0)
        return Fail("token: the request was refused", kExitFailed);
    return FinishText(p, o, "token", "access_token");
}

int CmdAuthCode(const Options &o)
{
    if (int rc = NeedAppId(o, "auth-code"))
        return rc;
    Pending *p = NewPending();
    if (sso_request_auth_code(o.app_id.c_str(), o.scope.empty() ? nullptr : o.scope.c_str(), OnText,
                              p) != 0)
        return Fail("auth-code: the request was refused", kExitFailed);
    return FinishText(p, o, "auth-code", "auth_code");
}

int CmdLogout(const Options &o)
{
    Pending *p = NewPending();
    if (sso_perform_logout(OnText, p, nullptr) != 0)
        return Fail("logout: the request was refused", kExitFailed);
    int rc = AwaitResult(p, o, "logout");
    if (rc != kExitOk)
        return rc;
    if (o.json)
        PrintLine(JsonObject().Bool("ok", p->result == 0).Int("result", p->result).Text());
    if (p->result != 0)
        return Fail("logout failed with result " + std::to_string(p->result), kExitFailed);
    if (!o.json)
        PrintLine("signed out");
    return kExitOk;
}

int CmdAccounts(const Options &o)
{
    char *raw = nullptr;
    int ret = sso_get_accounts(&raw);
    std::string text = TakeString(raw);
    if (ret != 0)
        return Fail("accounts: cannot read the account document", kExitFailed);
    Json::Value doc;
    Json::CharReaderBuilder reader;
    std::string errors;
    std::istringstream in(text);
    if (!Json::parseFromStream(reader, in, &doc, &errors))
        return Fail("accounts: the account document is not valid JSON", kExitFailed);
    if (!o.show_secrets)
        MaskSecrets(doc);
    Json::StreamWriterBuilder writer;
    writer["emitUTF8"] = true;
    writer["indentation"] = o.json ? "" : "  ";
    PrintLine(Json::writeString(writer, doc));
    return kExitOk;
}

// ---- watch ----

struct WatchEvent {
    int result;
    sso_login_state state;
    std::string text;
};

bool g_watch_show_secrets = false;
bool g_watch_json = false;

gboolean PrintWatchEvent(gpointer data)
{
    std::unique_ptr<WatchEvent> e(static_cast<WatchEvent *>(data));
    // The extended text is "login id|GUID|event sub-type".
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t bar = e->text.find('|', start);
        parts.push_back(e->text.substr(start, bar - start));
        if (bar == std::string::npos)
            break;
        start = bar + 1;
    }
    parts.resize(std::max<size_t>(parts.size(), 3));
    const char *state = e->state == SSO_LOGEDIN ? "signed-in" : "signed-out";
    std::string guid = Mask(parts[1], g_watch_show_secrets);
    if (g_watch_json)
        PrintLine(JsonObject()
                      .Str("state", state)
                      .Int("result", e->result)
                      .Str("login_id", parts[0])
                      .Str("guid", guid)
                      .Str("event", parts[2])
                      .Text());
    else
        PrintLine(std::string(state) + " login_id=" + parts[0] + " guid=" + guid +
                  " event=" + parts[2] + " result=" + std::to_string(e->result));
    return G_SOURCE_REMOVE;
}

int OnLoginStateChanged(void *, int result, sso_login_state state, char *text, char *)
{
    g_main_context_invoke(nullptr, PrintWatchEvent,
                          new WatchEvent{result, state, text ? text : ""});
    return 0;
}

gboolean OnStopSignal(gpointer data)
{
    g_main_loop_quit(static_cast<GMainLoop *>(data));
    return G_SOURCE_CONTINUE; // removed by CmdWatch
}

int CmdWatch(const Options &o)
{
    g_watch_show_secrets = o.show_secrets;
    g_watch_json = o.json;
    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    guint sigint = g_unix_signal_add(SIGINT, OnStopSignal, loop);
    guint sigterm = g_unix_signal_add(SIGTERM, OnStopSignal, loop);
    if (sso_subscribe_login_state_change_extra(OnLoginStateChanged, nullptr) != 0)
        return Fail("watch: cannot subscribe to login state changes", kExitFailed);
    PrintLine(o.json ? "{\"watching\":true}" : "watching");
    g_main_loop_run(loop);
    sso_unsubscribe_login_state_change();
    g_source_remove(sigint);
    g_source_remove(sigterm);
    g_main_loop_unref(loop);
    return kExitOk;
}

// ---- command line ----

int Usage(const std::string &message)
{
    std::fprintf(stderr, "ssoctl: %s\n%s", message.c_str(), "Try \"ssoctl --help\".\n");
    return kExitUsage;
}

int Run(int argc, char **argv)
{
    Options o;
    std::string command;
    bool help = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::string value;
        bool has_inline = false;
        if (arg.rfind("--", 0) == 0) {
            size_t eq = arg.find('=');
            if (eq != std::string::npos) {
                value = arg.substr(eq + 1);
                arg = arg.substr(0, eq);
                has_inline = true;
            }
        }
        auto take = [&](std::string *dest) -> bool {
            if (has_inline) {
                *dest = value;
                return true;
            }
            if (i + 1 >= argc)
                return false;
            *dest = argv[++i];
            return true;
        };
        if (arg == "--help" || arg == "-h") {
            help = true;
        } else if (arg == "--version") {
            PrintLine(std::string("ssoctl ") + SSOCTL_VERSION);
            return kExitOk;
        } else if (arg == "--json") {
            o.json = true;
        } else if (arg == "--show-secrets") {
            o.show_secrets = true;
        } else if (arg == "--app-id" || arg == "--secret" || arg == "--scope" ||
                   arg == "--timeout") {
            std::string v;
            if (!take(&v))
                return Usage("option " + arg + " needs a value");
            if (arg == "--app-id") {
                o.app_id = v;
            } else if (arg == "--secret") {
                o.secret = v;
            } else if (arg == "--scope") {
                o.scope = v;
            } else {
                char *end = nullptr;
                long ms = std::strtol(v.c_str(), &end, 10);
                if (v.empty() || *end != '\0' || ms <= 0 || ms > 3600000)
                    return Usage("--timeout needs a number of milliseconds, got \"" + v + "\"");
                o.timeout_ms = static_cast<int>(ms);
            }
        } else if (!arg.empty() && arg[0] == '-') {
            return Usage("unknown option " + arg);
        } else if (command.empty()) {
            command = arg;
        } else {
            return Usage("unexpected argument " + arg);
        }
    }
    if (!command.empty() && CommandUsage().count(command) == 0)
        return Usage("unknown command " + command);
    if (help) {
        std::fputs(command.empty() ? kMainUsage : CommandUsage().at(command).c_str(), stdout);
        return kExitOk;
    }
    if (command.empty())
        return Usage("no command given");
    bool uses_app = command == "token" || command == "auth-code";
    if (!uses_app && (!o.app_id.empty() || !o.scope.empty() || !o.secret.empty()))
        return Usage(command + " takes no --app-id, --secret or --scope");
    if (command == "status")
        return CmdStatus(o);
    if (command == "token")
        return CmdToken(o);
    if (command == "auth-code")
        return CmdAuthCode(o);
    if (command == "logout")
        return CmdLogout(o);
    if (command == "accounts")
        return CmdAccounts(o);
    return CmdWatch(o);
}

} // namespace

int main(int argc, char **argv)
{
    return Run(argc, argv);
}
