#include "ctl.h"

#include <gio/gio.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include <json/reader.h>
#include <json/value.h>

#include "cli.h"
#include "contract.h"
#include "control_api.h"
#include "glib_util.h"
#include "tool_json.h"

namespace ssosim {

namespace {

// Long enough for CallClient, which waits for the client's own reply.
constexpr int kControlTimeoutMs = 30000;

// The global --json option: commands that print data print one JSON document.
bool g_json = false;

// The simulator's JSON documents mark "none" with an empty text; the tools'
// JSON says null.
Json::Value EmptyToNull(Json::Value v)
{
    if (v.isString() && v.asString().empty())
        return Json::Value();
    if (v.isObject())
        for (const std::string &name : v.getMemberNames())
            v[name] = EmptyToNull(v[name]);
    if (v.isArray())
        for (Json::Value &item : v)
            item = EmptyToNull(item);
    return v;
}

struct Parsed {
    std::vector<std::string> positional;
    // Options in the order given: (name, value); flags have "".
    std::vector<std::pair<std::string, std::string>> options;
};

struct OptionDef {
    const char *name;
    const char *value_name; // nullptr for a flag
    const char *help;
};

struct Command {
    const char *name;
    const char *synopsis;
    const char *summary;
    const char *help;
    std::vector<OptionDef> options;
    std::size_t min_args;
    std::size_t max_args;
    int (*run)(const Parsed &parsed);
};

const std::vector<Command> &Commands();

bool IsHelp(const std::string &arg)
{
    return arg == "--help" || arg == "-h";
}

std::string Hint(const char *command)
{
    return std::string(" (see '") + kProgram + " ctl" +
           (command ? std::string(" ") + command : "") + " --help')";
}

void PrintCommandHelp(const Command &c)
{
    std::printf("Usage: %s ctl %s %s\n\n%s\n", kProgram, c.name, c.synopsis, c.summary);
    if (!c.options.empty()) {
        std::printf("\nOptions:\n");
        for (const auto &o : c.options) {
            std::string left =
                std::string(o.name) + (o.value_name ? std::string(" ") + o.value_name : "");
            std::printf("  %-22s %s\n", left.c_str(), o.help);
        }
        std::printf("  %-22s %s\n", "-h, --help", "Show this help and exit");
    }
    std::printf("\n%s", c.help);
}

Parsed Parse(const Command &c, const std::vector<std::string> &args)
{
    Parsed p;
    ssotools::WalkCommandLine(
        args, 0,
        [](const std::string &arg) { return arg.size() >= 2 && arg.compare(0, 2, "--") == 0; },
        [&](const std::string &arg) { p.positional.push_back(arg); },
        [&](const ssotools::OptionWord &word, const std::string *next) {
            const OptionDef *def = nullptr;
            for (const auto &o : c.options)
                if (word.name == o.name)
                    def = &o;
            if (def == nullptr)
                throw UsageError("unknown option '" + word.name + "' for ctl " + c.name +
                                 Hint(c.name));
            if (def->value_name == nullptr && word.inline_value)
                throw UsageError("option " + word.name + " takes no value" + Hint(c.name));
            if (def->value_name != nullptr && !word.inline_value && next == nullptr)
                throw UsageError("option " + word.name + " needs " + def->value_name +
                                 Hint(c.name));
            const bool takes_next = def->value_name != nullptr && !word.inline_value;
            p.options.emplace_back(word.name, takes_next ? *next : word.inline_value.value_or(""));
            return takes_next;
        });
    if (p.positional.size() < c.min_args)
        throw UsageError(std::string("ctl ") + c.name + " needs " + c.synopsis + Hint(c.name));
    if (p.positional.size() > c.max_args)
        throw UsageError(std::string("too many arguments for ctl ") + c.name + Hint(c.name));
    return p;
}

long long ParseInteger(const std::string &option, const std::string &text, long long min,
                       long long max)
{
    errno = 0;
    char *end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || v < min || v > max)
        throw UsageError("option " + option + " needs an integer from " + std::to_string(min) +
                         " to " + std::to_string(max) + ", not '" + text + "'" + Hint("configure"));
    return v;
}

// ---------------------------------------------------------------- the bus

class ControlClient {
public:
    ControlClient()
    {
        GError *error = nullptr;
        connection_ = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
        if (connection_ == nullptr) {
            ErrorPtr owned(error);
            const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
            throw Failure(std::string("no system bus at ") +
                          (address && *address ? address
                                               : "the default address (DBUS_SYSTEM_BUS_ADDRESS "
                                                 "is not set)") +
                          ": " + owned->message +
                          " (start one, or run the command inside sso-sim-session)");
        }
    }
    ~ControlClient() { g_object_unref(connection_); }
    ControlClient(const ControlClient &) = delete;
    ControlClient &operator=(const ControlClient &) = delete;

    // Takes params (floating or not); nullptr for none.
    VariantPtr Call(const char *method, GVariant *params, const char *reply_type = "()")
    {
        VariantPtr owned_params = AdoptVariant(params);
        GError *error = nullptr;
        GVariant *reply = g_dbus_connection_call_sync(
            connection_, kServiceBusName, kControlPath, kControlInterface, method,
            owned_params.get(), G_VARIANT_TYPE(reply_type), G_DBUS_CALL_FLAGS_NO_AUTO_START,
            kControlTimeoutMs, nullptr, &error);
        if (reply == nullptr) {
            ErrorPtr owned(error);
            if (g_error_matches(owned.get(), G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                g_error_matches(owned.get(), G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER))
                throw Failure(std::string("no simulator is running (nobody owns ") +
                              kServiceBusName +
                              " on the system bus); start one with 'sso-simulator run &'");
            if (g_error_matches(owned.get(), G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED))
                throw Failure(std::string(method) +
                              " refused by the bus policy: this user may not script the "
                              "simulator (the service's account and the members of its control "
                              "group may; see sso-simulator(1)): " +
                              DescribeError(owned.get()));
            throw Failure(std::string(method) + " failed: " + DescribeError(owned.get()));
        }
        return VariantPtr(reply);
    }

private:
    GDBusConnection *connection_ = nullptr;
};

// Journal entries (first field unused) and deliveries (DESTINATION METHOD
// ARGS); as JSON {"<list>": [{"destination"?, "method", "args"}...]}.
void PrintRecords(GVariant *reply, bool with_first, const char *list_name)
{
    GVariantIter *iter = nullptr;
    g_variant_get(reply, "(a(sss))", &iter);
    const gchar *a = nullptr;
    const gchar *b = nullptr;
    const gchar *c = nullptr;
    Json::Value list(Json::arrayValue);
    while (g_variant_iter_next(iter, "(&s&s&s)", &a, &b, &c)) {
        if (g_json) {
            Json::Value record(Json::objectValue);
            if (with_first)
                record["destination"] = a;
            record["method"] = b;
            record["args"] = c;
            list.append(record);
        } else if (with_first) {
            std::printf("%s %s %s\n", a, b, c);
        } else {
            std::printf("%s %s\n", b, c);
        }
    }
    g_variant_iter_free(iter);
    if (g_json) {
        Json::Value out(Json::objectValue);
        out[list_name] = list;
        ssotools::PrintJson(out);
    }
}

// ---------------------------------------------------------------- commands

int RunConfigure(const Parsed &p)
{
    // Validate everything before building variants, so a usage error leaves
    // nothing half-built behind.
    struct Entry {
        const char *key;
        char type; // 'i', 'u', 'b', 's'
        long long number;
        std::string text;
    };
    // The options that script a behaviour key, with the key's type and
    // range; flags ('b') take no value.
    struct KeyOption {
        const char *option;
        const char *key;
        char type;
        long long min;
        long long max;
    };
    static const KeyOption kKeyOptions[] = {
        {"--accept", "accept", 'i', INT32_MIN, INT32_MAX},
        {"--result", "result", 'i', INT32_MIN, INT32_MAX},
        {"--answer-delay", "answer_delay_ms", 'u', 0, UINT32_MAX},
        {"--result-delay", "result_delay_ms", 'u', 0, UINT32_MAX},
        {"--drop", "drop_result", 'b', 0, 1},
        {"--no-answer", "no_answer", 'b', 0, 1},
        {"--refuse-percent", "refuse_percent", 'u', 0, 100},
        {"--drop-percent", "drop_percent", 'u', 0, 100},
        {"--answer-delay-max", "answer_delay_max_ms", 'u', 0, UINT32_MAX},
        {"--result-delay-max", "result_delay_max_ms", 'u', 0, UINT32_MAX},
        {"--random-seed", "random_seed", 'u', 0, UINT32_MAX},
    };
    std::vector<Entry> entries;
    std::vector<std::string> payloads;
    bool have_payloads = false;
    for (const auto &[name, value] : p.options) {
        if (name == "--error") {
            entries.push_back({"error", 's', 0, value});
        } else if (name == "--payload") {
            payloads.push_back(value);
            have_payloads = true;
        } else {
            for (const KeyOption &o : kKeyOptions) {
                if (name != o.option)
                    continue;
                const long long number =
                    o.type == 'b' ? 1 : ParseInteger(name, value, o.min, o.max);
                entries.push_back({o.key, o.type, number, ""});
            }
        }
    }

    ControlClient client;
    GVariantBuilder dict;
    g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
    for (const auto &e : entries) {
        GVariant *v = nullptr;
        switch (e.type) {
        case 'i':
            v = g_variant_new_int32(static_cast<gint32>(e.number));
            break;
        case 'u':
            v = g_variant_new_uint32(static_cast<guint32>(e.number));
            break;
        case 'b':
            v = g_variant_new_boolean(e.number != 0);
            break;
        default:
            v = g_variant_new_string(e.text.c_str());
            break;
        }
        g_variant_builder_add(&dict, "{sv}", e.key, v);
    }
    if (have_payloads) {
        GVariantBuilder list;
        g_variant_builder_init(&list, G_VARIANT_TYPE_STRING_ARRAY);
        for (const auto &s : payloads)
            g_variant_builder_add(&list, "s", s.c_str());
        g_variant_builder_add(&dict, "{sv}", "payloads", g_variant_builder_end(&list));
    }
    client.Call("Configure", g_variant_new("(sa{sv})", p.positional[0].c_str(), &dict));
    return kExitOk;
}

int RunReset(const Parsed &p)
{
    ControlClient client;
    if (p.positional.empty())
        client.Call("Reset", nullptr);
    else
        client.Call("ResetMethod", g_variant_new("(s)", p.positional[0].c_str()));
    return kExitOk;
}

int RunJournal(const Parsed &)
{
    VariantPtr reply = ControlClient().Call("GetJournal", nullptr, "(a(sss))");
    PrintRecords(reply.get(), false, "journal");
    return kExitOk;
}

int RunTallies(const Parsed &)
{
    VariantPtr reply = ControlClient().Call("GetTallies", nullptr, "(a(stttt))");
    GVariantIter *iter = nullptr;
    g_variant_get(reply.get(), "(a(stttt))", &iter);
    const gchar *object_name = nullptr;
    guint64 counts[4] = {};
    static const char *const kCountNames[] = {"accepted", "refused", "delivered", "dropped"};
    Json::Value list(Json::arrayValue);
    while (g_variant_iter_next(iter, "(&stttt)", &object_name, &counts[0], &counts[1], &counts[2],
                               &counts[3])) {
        if (g_json) {
            Json::Value tally(Json::objectValue);
            tally["object_name"] = object_name;
            for (int i = 0; i < 4; ++i)
                tally[kCountNames[i]] = static_cast<Json::UInt64>(counts[i]);
            list.append(tally);
            continue;
        }
        std::printf(
            "%s accepted %llu refused %llu delivered %llu dropped %llu\n", object_name,
            static_cast<unsigned long long>(counts[0]), static_cast<unsigned long long>(counts[1]),
            static_cast<unsigned long long>(counts[2]), static_cast<unsigned long long>(counts[3]));
    }
    g_variant_iter_free(iter);
    if (g_json) {
        Json::Value out(Json::objectValue);
        out["tallies"] = list;
        ssotools::PrintJson(out);
    }
    return kExitOk;
}

int RunDeliveries(const Parsed &)
{
    VariantPtr reply = ControlClient().Call("GetDeliveries", nullptr, "(a(sss))");
    PrintRecords(reply.get(), true, "deliveries");
    return kExitOk;
}

int RunEmit(const Parsed &p)
{
    const std::string args = p.positional.size() > 1 ? p.positional[1] : "()";
    ControlClient client;
    client.Call("EmitSignal", g_variant_new("(ss)", p.positional[0].c_str(), args.c_str()));
    return kExitOk;
}

int RunCallClient(const Parsed &p)
{
    ControlClient client;
    VariantPtr reply = client.Call("CallClient",
                                   g_variant_new("(sss)", p.positional[0].c_str(),
                                                 p.positional[1].c_str(), p.positional[2].c_str()),
                                   "(s)");
    const gchar *error = nullptr;
    g_variant_get(reply.get(), "(&s)", &error);
    if (*error)
        throw Failure(std::string("the client call failed: ") + error);
    return kExitOk;
}

// Prints the one text of a "(s)" reply: as the JSON member, or the line.
int PrintTextReply(GVariant *reply, const char *member)
{
    const gchar *text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    if (g_json) {
        Json::Value out(Json::objectValue);
        out[member] = text;
        ssotools::PrintJson(out);
    } else {
        std::printf("%s\n", text);
    }
    return kExitOk;
}

int RunObjectName(const Parsed &)
{
    VariantPtr reply = ControlClient().Call("GetObjectName", nullptr, "(s)");
    return PrintTextReply(reply.get(), "object_name");
}

int RunQuit(const Parsed &)
{
    ControlClient().Call("Quit", nullptr);
    return kExitOk;
}

// ---------------------------------------------------------------- accounts

// Account options of "account add" and the a{sv} keys they fill.
const std::vector<std::pair<const char *, const char *>> &AccountOptionKeys()
{
    static const std::vector<std::pair<const char *, const char *>> kKeys = {
        {"--login-id", "login_id"},
        {"--guid", "guid"},
        {"--uid", "uid"},
        {"--icon", "icon_path"},
        {"--auth", "auth"},
        {"--pin-set", "user_pin_set"},
        {"--country", "country"},
        {"--country2", "country2"},
        {"--display-name", "display_name"},
        {"--first-name", "first_name"},
        {"--last-name", "last_name"},
        {"--device-id", "device_id"},
        {"--password", "password"},
        {"--prefix-name", "prefix_name"},
        {"--birth-date", "birth_date"},
        {"--zip-code", "zip_code"},
        {"--mobile", "mobile_num"},
        {"--receive-email", "receive_email"},
        {"--family-group", "family_group"},
    };
    return kKeys;
}

int RunAccountAdd(const Parsed &p)
{
    GVariantBuilder dict;
    g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
    bool have_login_id = false;
    for (const auto &[name, value] : p.options)
        for (const auto &[option, key] : AccountOptionKeys())
            if (name == option) {
                g_variant_builder_add(&dict, "{sv}", key, g_variant_new_string(value.c_str()));
                have_login_id = have_login_id || name == "--login-id";
            }
    VariantPtr fields = AdoptVariant(g_variant_builder_end(&dict));
    if (!have_login_id)
        throw UsageError("ctl account add needs --login-id ID" + Hint("account add"));
    VariantPtr reply =
        ControlClient().Call("AddAccount", g_variant_new("(@a{sv})", fields.get()), "(s)");
    return PrintTextReply(reply.get(), "guid");
}

int RunAccountRm(const Parsed &p)
{
    ControlClient().Call("RemoveAccount", g_variant_new("(s)", p.positional[0].c_str()));
    return kExitOk;
}

Json::Value ParseJsonReply(const std::string &text)
{
    Json::CharReaderBuilder builder;
    Json::Value value;
    std::string errors;
    std::istringstream in(text);
    if (!Json::parseFromStream(builder, in, &value, &errors) || !value.isObject())
        throw Failure("the simulator answered malformed JSON: " + errors);
    return value;
}

// Calls a control method that answers one JSON text.
Json::Value CallForJson(const char *method)
{
    VariantPtr reply = ControlClient().Call(method, nullptr, "(s)");
    const gchar *text = nullptr;
    g_variant_get(reply.get(), "(&s)", &text);
    return ParseJsonReply(text);
}

int RunAccounts(const Parsed &)
{
    const Json::Value v = CallForJson("GetAccounts");
    if (g_json) {
        ssotools::PrintJson(EmptyToNull(v));
        return kExitOk;
    }
    for (const auto &a : v["accounts"])
        std::printf("%s %s %s %s %s\n", a["active"].asBool() ? "*" : "-",
                    a["login_id"].asString().c_str(), a["guid"].asString().c_str(),
                    a["country"].asString().c_str(), a["display_name"].asString().c_str());
    return kExitOk;
}

int RunSignIn(const Parsed &p)
{
    ControlClient().Call("SignIn", g_variant_new("(s)", p.positional[0].c_str()));
    return kExitOk;
}

int RunSignOut(const Parsed &)
{
    ControlClient().Call("SignOut", nullptr);
    return kExitOk;
}

int RunState(const Parsed &)
{
    const Json::Value v = EmptyToNull(CallForJson("GetState"));
    if (g_json) {
        ssotools::PrintJson(v);
        return kExitOk;
    }
    std::printf("signed_in: %s\nversion: %s\n",
                v["signed_in"].isNull() ? "-" : v["signed_in"].asString().c_str(),
                v["version"].isNull() ? "-" : v["version"].asString().c_str());
    return kExitOk;
}

int RunPublish(const Parsed &)
{
    ControlClient().Call("Publish", nullptr);
    return kExitOk;
}

int RunAppDataSet(const Parsed &p)
{
    const auto &a = p.positional;
    ControlClient().Call("SetApplicationData", g_variant_new("(ssss)", a[0].c_str(), a[1].c_str(),
                                                             a[2].c_str(), a[3].c_str()));
    return kExitOk;
}

int RunAppDataRm(const Parsed &p)
{
    ControlClient().Call("RemoveApplicationData", g_variant_new("(s)", p.positional[0].c_str()));
    return kExitOk;
}

int RunPublicDataWrite(const Parsed &p)
{
    const std::string &source = p.positional[0];
    std::string text;
    if (source == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        if (std::cin.bad())
            throw Failure("cannot read the document from standard input");
    } else {
        std::ifstream in(source, std::ios::binary);
        if (!in)
            throw Failure("cannot open '" + source + "'");
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (in.bad())
            throw Failure("cannot read '" + source + "'");
    }
    // A D-Bus string cannot carry these; say so rather than fail obscurely.
    if (text.find('\0') != std::string::npos || !g_utf8_validate(text.data(), text.size(), nullptr))
        throw Failure("the document must be UTF-8 text without NUL bytes");
    ControlClient().Call("WritePublicData", g_variant_new("(s)", text.c_str()));
    return kExitOk;
}

int RunIssued(const Parsed &)
{
    const Json::Value v = CallForJson("GetIssued");
    if (g_json) {
        ssotools::PrintJson(EmptyToNull(v));
        return kExitOk;
    }
    for (const auto &e : v["issued"]) {
        std::string flags;
        for (const char *flag : {"revoked", "redeemed", "scripted"})
            if (e[flag].asBool())
                flags += (flags.empty() ? "" : ",") + std::string(flag);
        const auto text_or_dash = [](const Json::Value &s) {
            return s.asString().empty() ? std::string("-") : s.asString();
        };
        std::printf("%d %s %s %s %s %s\n", e["sequence"].asInt(), e["kind"].asString().c_str(),
                    text_or_dash(e["app_id"]).c_str(), text_or_dash(e["account_guid"]).c_str(),
                    flags.empty() ? "-" : flags.c_str(), e["value"].asString().c_str());
    }
    return kExitOk;
}

int RunIssuedClear(const Parsed &)
{
    ControlClient().Call("ClearIssued", nullptr);
    return kExitOk;
}

int RunClientAdd(const Parsed &p)
{
    ControlClient().Call("RegisterClient",
                         g_variant_new("(ss)", p.positional[0].c_str(), p.positional[1].c_str()));
    return kExitOk;
}

int RunWhitelistAdd(const Parsed &p)
{
    ControlClient().Call("RegisterWhitelist",
                         g_variant_new("(ss)", p.positional[0].c_str(), p.positional[1].c_str()));
    return kExitOk;
}

const std::vector<Command> &Commands()
{
    static const std::vector<Command> kCommands = {
        {"configure",
         "METHOD [OPTIONS]",
         "Scripts how the simulator treats requests to METHOD ('*' for every method). Options\n"
         "merge into what was scripted before; 'reset' undoes them.",
         "Examples:\n"
         "  sso-simulator ctl configure sso_request_access_token --result 3 --payload AT-fixed\n"
         "  sso-simulator ctl configure sso_request_auth_code --accept 0\n"
         "  sso-simulator ctl configure '*' --answer-delay 200 --result-delay 500\n"
         "  sso-simulator ctl configure '*' --random-seed 7 --refuse-percent 10 --drop-percent 5 "
         "\\\n"
         "      --answer-delay-max 50 --result-delay-max 200\n"
         "  sso-simulator ctl configure sso_check_alive --error org.orvex.Error.Busy\n"
         "  sso-simulator ctl configure sso_get_public_account_data --payload '{\"id\":\"u1\"}'\n",
         {{"--accept", "N", "Answer N instead of 1 (anything but 1 refuses: no result)"},
          {"--result", "N", "Deliver result code N instead of 0"},
          {"--payload", "S",
           "Next string payload of the result (repeat for more);"
           " the answer of the (s) methods"},
          {"--answer-delay", "MS", "Answer MS milliseconds late"},
          {"--result-delay", "MS", "Deliver the result MS milliseconds after the answer"},
          {"--drop", nullptr, "Answer, but never deliver the result"},
          {"--error", "NAME", "Answer with the D-Bus error NAME ('' for none)"},
          {"--no-answer", nullptr, "Never answer (the caller times out)"},
          {"--refuse-percent", "P", "Refuse (answer 0) P percent of the requests, at random"},
          {"--drop-percent", "P", "Never deliver P percent of the accepted results, at random"},
          {"--answer-delay-max", "MS", "Answer each request 0 to MS milliseconds late, at random"},
          {"--result-delay-max", "MS",
           "Deliver each result 0 to MS milliseconds after the answer, at random"},
          {"--random-seed", "N", "Restart the random draws from seed N (repeatable runs)"}},
         1,
         1,
         &RunConfigure},
        {"reset",
         "[METHOD]",
         "Without METHOD: every behaviour back to the default and the journal and deliveries\n"
         "cleared. With METHOD: only that method's scripting is forgotten.",
         "Examples:\n"
         "  sso-simulator ctl reset\n"
         "  sso-simulator ctl reset sso_request_access_token\n",
         {},
         0,
         1,
         &RunReset},
        {"journal",
         "",
         "Prints the requests received, oldest first, one a line: METHOD ARGS (ARGS in GVariant\n"
         "text form with types).",
         "Example:\n"
         "  sso-simulator ctl journal\n"
         "  sso_check_alive ('obj42_org.example.app', int64 7, 'sso_check_alive')\n",
         {},
         0,
         0,
         &RunJournal},
        {"tallies",
         "",
         "Prints, per client object name, what became of its asynchronous requests:\n"
         "accepted, refused (answered anything but 1, or an error), results delivered and\n"
         "results dropped. 'reset' clears them.",
         "Example:\n"
         "  sso-simulator ctl tallies\n"
         "  obj42_org.example.app accepted 10 refused 2 delivered 9 dropped 1\n",
         {},
         0,
         0,
         &RunTallies},
        {"deliveries",
         "",
         "Prints the results delivered to clients, oldest first, one a line:\n"
         "DESTINATION METHOD ARGS.",
         "Example:\n"
         "  sso-simulator ctl deliveries\n",
         {},
         0,
         0,
         &RunDeliveries},
        {"emit",
         "NAME [ARGS_TEXT]",
         "Emits signal NAME of interface org.orvex.tv.ssoservice.signal on\n"
         "/org/orvex/tv/ssoservice/signal, with ARGS_TEXT (a GVariant text tuple; default \"()\").",
         "Examples:\n"
         "  sso-simulator ctl emit LoginStatusChanged \"(1, 'user-1')\"\n"
         "  sso-simulator ctl emit Reset\n",
         {},
         1,
         2,
         &RunEmit},
        {"call-client",
         "BUS_NAME METHOD ARGS_TEXT",
         "Calls METHOD of the client interface on BUS_NAME's client object with ARGS_TEXT\n"
         "(a GVariant text tuple) and waits for the reply. Fails (exit 1) with the client's\n"
         "error.",
         "Example:\n"
         "  sso-simulator ctl call-client org.orvex.tv.ssoservice.ssoclient.obj42_org.example.app "
         "\\\n"
         "      sso_request_access_token \\\n"
         "      \"('obj1_x', int64 0, int64 99, 'AT-stale', 0, int64 0, 0, "
         "'sso_request_access_token')\"\n",
         {},
         3,
         3,
         &RunCallClient},
        {"object-name",
         "",
         "Prints the simulator's own object name (obj<pid>_<app id>).",
         "Example:\n"
         "  sso-simulator ctl object-name\n",
         {},
         0,
         0,
         &RunObjectName},
        {"account add",
         "--login-id ID [OPTIONS]",
         "Registers an account (at most six) and prints its GUID. Values not given are\n"
         "generated (GUID, auth token, uid, device id) or defaulted (country USA/US, PIN not\n"
         "set, display name from the names or the login id). Nobody is signed in by this.",
         "Examples:\n"
         "  sso-simulator ctl account add --login-id kim@example.com --country KOR\n"
         "  sso-simulator ctl account add --login-id ana@example.com --display-name 'Ana S.' \\\n"
         "      --guid 0123456789ABCDEF0123456789ABCDEF --auth UT-fixed --pin-set Y\n",
         {{"--login-id", "ID", "Login id (account_id); required"},
          {"--guid", "G", "Account GUID (default: 32 generated hex digits)"},
          {"--uid", "U", "Account uid (default: generated)"},
          {"--icon", "PATH", "Icon path (default: none)"},
          {"--auth", "TOKEN", "Auth token (default: generated UT-...)"},
          {"--pin-set", "Y|N", "Whether a PIN is set (default N)"},
          {"--country", "CODE3", "Three-letter country code, e.g. KOR"},
          {"--country2", "CODE2", "Two-letter country code, e.g. KR"},
          {"--display-name", "NAME", "Display name"},
          {"--first-name", "NAME", "First name"},
          {"--last-name", "NAME", "Last name"},
          {"--device-id", "ID", "userDeviceID (default: generated)"},
          {"--password", "PW", "Password for ID/password requests (never published)"},
          {"--prefix-name", "P", "Name prefix, e.g. Dr (default: none)"},
          {"--birth-date", "YYYYMMDD", "Birth date (default 19900101)"},
          {"--zip-code", "ZIP", "Postal code (default: one of the country's)"},
          {"--mobile", "NUMBER", "Mobile number (default: none)"},
          {"--receive-email", "Y|N", "Whether the user takes e-mail (default N)"},
          {"--family-group", "ID", "Family group; accounts with the same ID share it"}},
         0,
         0,
         &RunAccountAdd},
        {"account rm",
         "LOGIN_ID|GUID",
         "Unregisters an account. A signed-in account is signed out first.",
         "Examples:\n"
         "  sso-simulator ctl account rm kim@example.com\n"
         "  sso-simulator ctl account rm 0123456789ABCDEF0123456789ABCDEF\n",
         {},
         1,
         1,
         &RunAccountRm},
        {"accounts",
         "",
         "Lists the registered accounts in registration order, one a line:\n"
         "ACTIVE LOGIN_ID GUID COUNTRY DISPLAY_NAME, ACTIVE being '*' for the signed-in\n"
         "account and '-' for the others. --json prints everything, secrets included.",
         "Examples:\n"
         "  sso-simulator ctl accounts\n"
         "  * kim@example.com 9F0C...E1 KOR Kim\n"
         "  sso-simulator ctl accounts --json\n",
         {},
         0,
         0,
         &RunAccounts},
        {"sign-in",
         "LOGIN_ID|GUID",
         "Signs the account in. When another account is signed in, this is a switch.",
         "Example:\n"
         "  sso-simulator ctl sign-in kim@example.com\n",
         {},
         1,
         1,
         &RunSignIn},
        {"sign-out",
         "",
         "Signs the signed-in account out (fails when nobody is signed in).",
         "Example:\n"
         "  sso-simulator ctl sign-out\n",
         {},
         0,
         0,
         &RunSignOut},
        {"state",
         "",
         "Prints who is signed in and the public data's version: \"signed_in: GUID\" ('-'\n"
         "for nobody) and \"version: N\"; --json: {\"signed_in\": GUID or null, \"version\": N}.",
         "Example:\n"
         "  sso-simulator ctl state\n"
         "  signed_in: 9F0C...E1\n"
         "  version: 3\n",
         {},
         0,
         0,
         &RunState},
        {"publish",
         "",
         "Writes the current account state again (document, version, settings).",
         "Example:\n"
         "  sso-simulator ctl publish\n",
         {},
         0,
         0,
         &RunPublish},
        {"app-data set",
         "PACKAGE GUID KEY VALUE",
         "Stores VALUE under KEY for account GUID in PACKAGE's application data.",
         "Example:\n"
         "  sso-simulator ctl app-data set org.example.app 9F0C...E1 theme dark\n",
         {},
         4,
         4,
         &RunAppDataSet},
        {"app-data rm",
         "PACKAGE",
         "Removes PACKAGE's application data.",
         "Example:\n"
         "  sso-simulator ctl app-data rm org.example.app\n",
         {},
         1,
         1,
         &RunAppDataRm},
        {"public-data write",
         "FILE|-",
         "Writes the text of FILE ('-': standard input) as the public account document,\n"
         "verbatim (malformed text included), and bumps the version. 'publish' restores\n"
         "the real state.",
         "Examples:\n"
         "  sso-simulator ctl public-data write broken.json\n"
         "  echo '{\"account_count\": ' | sso-simulator ctl public-data write -\n",
         {},
         1,
         1,
         &RunPublicDataWrite},
        {"issued clear",
         "",
         "Forgets every issued token and code (they are then unknown, not revoked).",
         "Example:\n"
         "  sso-simulator ctl issued clear\n",
         {},
         0,
         0,
         &RunIssuedClear},
        {"issued",
         "",
         "Lists the access tokens, auth codes and whitelist tokens issued, oldest first, one a\n"
         "line: SEQUENCE KIND APP_ID ACCOUNT_GUID FLAGS VALUE ('-' for none; FLAGS from\n"
         "revoked, redeemed, scripted). --json prints every detail.",
         "Examples:\n"
         "  sso-simulator ctl issued\n"
         "  1 access_token org.example.app 9F0C...E1 - AT.3q2-7wEAAAB...\n"
         "  sso-simulator ctl issued --json\n",
         {},
         0,
         0,
         &RunIssued},
        {"client add",
         "APP_ID SECRET",
         "Registers a client: access-token requests for APP_ID must then carry SECRET as their\n"
         "secret key (unregistered app ids take any non-empty secret).",
         "Example:\n"
         "  sso-simulator ctl client add org.example.app s3cr3t\n",
         {},
         2,
         2,
         &RunClientAdd},
        {"whitelist add",
         "PACKAGE SIGNATURE",
         "Registers a whitelist pair. Once any pair is registered, whitelist tokens go only to\n"
         "registered (PACKAGE, SIGNATURE) pairs; before, to anyone signed in.",
         "Example:\n"
         "  sso-simulator ctl whitelist add org.example.app 3082034f3082...\n",
         {},
         2,
         2,
         &RunWhitelistAdd},
        {"quit",
         "",
         "Stops the simulator (exit status 0).",
         "Example:\n"
         "  sso-simulator ctl quit\n",
         {},
         0,
         0,
         &RunQuit},
    };
    return kCommands;
}

} // namespace

void PrintCtlHelp()
{
    std::printf("Usage: %s ctl COMMAND [ARGS...]\n"
                "\n"
                "Scripts and inspects a running simulator over its control interface\n"
                "(%s on %s, system bus).\n"
                "\n"
                "Global options (anywhere on the line, before a \"--\"):\n"
                "  --json      commands that print data print one JSON document (journal,\n"
                "              deliveries, tallies, accounts, issued, state, object-name,\n"
                "              account add); docs/json-output.md has the schema\n"
                "  -h, --help  this text, or a command's with the command\n"
                "\n"
                "Commands:\n",
                kProgram, kControlInterface, kControlPath);
    for (const auto &c : Commands())
        std::printf("  %-18s %s\n", c.name, c.synopsis);
    std::printf("\n"
                "Run '%s ctl COMMAND --help' for a command's options and examples.\n"
                "Exit status: 0 ok, 1 failure (no simulator running, D-Bus error), 2 bad usage.\n"
                "\n"
                "Examples:\n"
                "  %s ctl configure sso_request_access_token --payload AT-test --result 0\n"
                "  %s ctl journal\n"
                "  %s ctl account add --login-id kim@example.com --country KOR\n"
                "  %s ctl sign-in kim@example.com\n"
                "  %s ctl reset\n",
                kProgram, kProgram, kProgram, kProgram, kProgram, kProgram);
}

int RunCtl(const std::vector<std::string> &all_args, bool json)
{
    // --json is global: taken wherever it stands before a "--".
    std::vector<std::string> args;
    g_json = json;
    bool options_done = false;
    for (const std::string &a : all_args) {
        options_done = options_done || a == "--";
        if (!options_done && a == "--json")
            g_json = true;
        else
            args.push_back(a);
    }
    if (args.empty())
        throw UsageError("ctl needs a command" + Hint(nullptr));
    if (IsHelp(args[0])) {
        PrintCtlHelp();
        return kExitOk;
    }
    // Two-word commands ("account add") first, so a group word never
    // shadows them.
    std::vector<const Command *> group;
    for (const auto &c : Commands()) {
        const std::string name = c.name;
        const auto space = name.find(' ');
        std::size_t words = 1;
        if (space != std::string::npos) {
            if (args[0] != name.substr(0, space))
                continue;
            group.push_back(&c);
            if (args.size() < 2 || args[1] != name.substr(space + 1))
                continue;
            words = 2;
        } else if (args[0] != name) {
            continue;
        }
        std::vector<std::string> rest(args.begin() + static_cast<std::ptrdiff_t>(words),
                                      args.end());
        for (const auto &a : rest) {
            if (a == "--")
                break;
            if (IsHelp(a)) {
                PrintCommandHelp(c);
                return kExitOk;
            }
        }
        return c.run(Parse(c, rest));
    }
    if (!group.empty()) {
        std::string subcommands;
        for (const Command *c : group)
            subcommands +=
                (subcommands.empty() ? "" : ", ") + std::string(c->name).substr(args[0].size() + 1);
        if (args.size() >= 2 && IsHelp(args[1])) {
            std::printf("Usage: %s ctl %s SUBCOMMAND [ARGS...]\n\nSubcommands:\n", kProgram,
                        args[0].c_str());
            for (const Command *c : group)
                std::printf("  %-18s %s\n", c->name, c->synopsis);
            std::printf("\nRun '%s ctl %s SUBCOMMAND --help' for its options and examples.\n"
                        "\nExample:\n  %s ctl %s --help\n",
                        kProgram, args[0].c_str(), kProgram, group.front()->name);
            return kExitOk;
        }
        if (args.size() < 2)
            throw UsageError("ctl " + args[0] + " needs a subcommand (" + subcommands + ")" +
                             Hint(args[0].c_str()));
        throw UsageError("unknown subcommand '" + args[1] + "' of ctl " + args[0] + " (" +
                         subcommands + ")" + Hint(args[0].c_str()));
    }
    throw UsageError("unknown ctl command '" + args[0] + "'" + Hint(nullptr));
}

} // namespace ssosim
