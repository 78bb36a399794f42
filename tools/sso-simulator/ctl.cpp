#include "ctl.h"

#include <gio/gio.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "cli.h"
#include "contract.h"
#include "control_api.h"
#include "glib_util.h"

namespace ssosim {

namespace {

// Long enough for CallClient, which waits for the client's own reply.
constexpr int kControlTimeoutMs = 30000;

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
    bool options_done = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (options_done || arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
            p.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            continue;
        }
        std::string name = arg;
        std::string value;
        bool inline_value = false;
        const auto eq = arg.find('=');
        if (eq != std::string::npos) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
            inline_value = true;
        }
        const OptionDef *def = nullptr;
        for (const auto &o : c.options)
            if (name == o.name)
                def = &o;
        if (def == nullptr)
            throw UsageError("unknown option '" + name + "' for ctl " + c.name + Hint(c.name));
        if (def->value_name == nullptr) {
            if (inline_value)
                throw UsageError("option " + name + " takes no value" + Hint(c.name));
        } else if (!inline_value) {
            if (i + 1 >= args.size())
                throw UsageError("option " + name + " needs " + def->value_name + Hint(c.name));
            value = args[++i];
        }
        p.options.emplace_back(name, value);
    }
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
            throw Failure(std::string("cannot connect to the system bus: ") + owned->message);
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
                              kServiceBusName + " on the system bus)");
            throw Failure(std::string(method) + " failed: " + DescribeError(owned.get()));
        }
        return VariantPtr(reply);
    }

private:
    GDBusConnection *connection_ = nullptr;
};

void PrintRecords(GVariant *reply, bool with_first)
{
    GVariantIter *iter = nullptr;
    g_variant_get(reply, "(a(sss))", &iter);
    const gchar *a = nullptr;
    const gchar *b = nullptr;
    const gchar *c = nullptr;
    while (g_variant_iter_next(iter, "(&s&s&s)", &a, &b, &c)) {
        if (with_first)
            std::printf("%s %s %s\n", a, b, c);
        else
            std::printf("%s %s\n", b, c);
    }
    g_variant_iter_free(iter);
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
    std::vector<Entry> entries;
    std::vector<std::string> payloads;
    bool have_payloads = false;
    for (const auto &[name, value] : p.options) {
        if (name == "--accept")
            entries.push_back({"accept", 'i', ParseInteger(name, value, INT32_MIN, INT32_MAX), ""});
        else if (name == "--result")
            entries.push_back({"result", 'i', ParseInteger(name, value, INT32_MIN, INT32_MAX), ""});
        else if (name == "--answer-delay")
            entries.push_back(
                {"answer_delay_ms", 'u', ParseInteger(name, value, 0, UINT32_MAX), ""});
        else if (name == "--result-delay")
            entries.push_back(
                {"result_delay_ms", 'u', ParseInteger(name, value, 0, UINT32_MAX), ""});
        else if (name == "--drop")
            entries.push_back({"drop_result", 'b', 1, ""});
        else if (name == "--no-answer")
            entries.push_back({"no_answer", 'b', 1, ""});
        else if (name == "--error")
            entries.push_back({"error", 's', 0, value});
        else if (name == "--payload") {
            payloads.push_back(value);
            have_payloads = true;
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
    PrintRecords(reply.get(), false);
    return kExitOk;
}

int RunDeliveries(const Parsed &)
{
    VariantPtr reply = ControlClient().Call("GetDeliveries", nullptr, "(a(sss))");
    PrintRecords(reply.get(), true);
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

int RunObjectName(const Parsed &)
{
    VariantPtr reply = ControlClient().Call("GetObjectName", nullptr, "(s)");
    const gchar *name = nullptr;
    g_variant_get(reply.get(), "(&s)", &name);
    std::printf("%s\n", name);
    return kExitOk;
}

int RunQuit(const Parsed &)
{
    ControlClient().Call("Quit", nullptr);
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
          {"--no-answer", nullptr, "Never answer (the caller times out)"}},
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
                "Commands:\n",
                kProgram, kControlInterface, kControlPath);
    for (const auto &c : Commands())
        std::printf("  %-12s %s\n", c.name, c.synopsis);
    std::printf("\n"
                "Run '%s ctl COMMAND --help' for a command's options and examples.\n"
                "Exit status: 0 ok, 1 failure (no simulator running, D-Bus error), 2 bad usage.\n"
                "\n"
                "Examples:\n"
                "  %s ctl configure sso_request_access_token --payload AT-test --result 0\n"
                "  %s ctl journal\n"
                "  %s ctl reset\n",
                kProgram, kProgram, kProgram, kProgram);
}

int RunCtl(const std::vector<std::string> &args)
{
    if (args.empty())
        throw UsageError("ctl needs a command" + Hint(nullptr));
    if (IsHelp(args[0])) {
        PrintCtlHelp();
        return kExitOk;
    }
    for (const auto &c : Commands()) {
        if (args[0] != c.name)
            continue;
        std::vector<std::string> rest(args.begin() + 1, args.end());
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
    throw UsageError("unknown ctl command '" + args[0] + "'" + Hint(nullptr));
}

} // namespace ssosim
