// sso-platform vconf: read, write, remove and watch settings keys.
#include <glib-unix.h>
#include <glib.h>
#include <signal.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli.h"
#include "tool_json.h"
#include "vconf.h"

namespace ssoplatform {

namespace {

// Turns a library result into the tool's error, naming the key.
void Check(int rc, const std::string &key)
{
    CheckResult(
        rc, VCONF_OK, key,
        {{VCONF_ERROR_WRONG_PREFIX, true, "invalid key name '%s'"},
         {VCONF_ERROR_FILE_NO_ENT, false, "key '%s' is not set"},
         {VCONF_ERROR_WRONG_TYPE, false, "key '%s' holds a value of another type"},
         {VCONF_ERROR_FILE_PERM, false, "key '%s': permission denied"},
         {VCONF_ERROR_FILE_ACCESS, false, "key '%s': the settings store is not accessible"}},
        "key '%s': settings store error %d");
}

const char *BoolText(int v)
{
    return v ? "true" : "false";
}

int ParseInt(const std::string &text)
{
    errno = 0;
    char *end = nullptr;
    long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || v < INT_MIN || v > INT_MAX ||
        text[0] == ' ' || text[0] == '+')
        throw UsageError("invalid int value '" + text + "'");
    return static_cast<int>(v);
}

int ParseBool(const std::string &text)
{
    if (text == "true" || text == "1")
        return 1;
    if (text == "false" || text == "0")
        return 0;
    throw UsageError("invalid bool value '" + text + "' (use true, false, 1 or 0)");
}

// A key's value as the JSON output shows it: {"key", "type", "value"}; type
// and value are null for a key that is not set.
Json::Value KeyJson(const std::string &key, const char *type, const Json::Value &value)
{
    Json::Value out(Json::objectValue);
    out["key"] = key;
    out["type"] = type ? Json::Value(type) : Json::Value();
    out["value"] = value;
    return out;
}

void PrintValue(const std::string &key, const char *type, const Json::Value &value,
                const std::string &text)
{
    if (JsonOutput())
        ssotools::PrintJson(KeyJson(key, type, value));
    else
        std::printf("%s\n", text.c_str());
}

int Get(const Args &args)
{
    const std::string &key = args.positional[0];
    int v = 0;
    int rc = vconf_get_int(key.c_str(), &v);
    if (rc == VCONF_OK) {
        PrintValue(key, "int", v, std::to_string(v));
        return kExitOk;
    }
    if (rc != VCONF_ERROR_WRONG_TYPE)
        Check(rc, key);
    rc = vconf_get_bool(key.c_str(), &v);
    if (rc == VCONF_OK) {
        PrintValue(key, "bool", v != 0, BoolText(v));
        return kExitOk;
    }
    if (rc != VCONF_ERROR_WRONG_TYPE)
        Check(rc, key);
    char *s = vconf_get_str(key.c_str());
    if (!s)
        throw Failure("key '" + key + "' cannot be read");
    const std::string text = s;
    std::free(s);
    PrintValue(key, "string", text, text);
    return kExitOk;
}

int Set(const Args &args)
{
    const std::string &key = args.positional[0];
    const std::string &value = args.positional[1];
    if (!args.Has("--type"))
        throw UsageError("missing --type (int, bool or string)");
    std::string type = args.Get("--type");
    int rc;
    if (type == "int")
        rc = vconf_set_int(key.c_str(), ParseInt(value));
    else if (type == "bool")
        rc = vconf_set_bool(key.c_str(), ParseBool(value));
    else if (type == "string")
        rc = vconf_set_str(key.c_str(), value.c_str());
    else
        throw UsageError("invalid --type '" + type + "' (use int, bool or string)");
    Check(rc, key);
    return kExitOk;
}

int Unset(const Args &args)
{
    const std::string &key = args.positional[0];
    Check(vconf_unset(key.c_str()), key);
    return kExitOk;
}

void OnChange(keynode_t *node, void *)
{
    const char *name = vconf_keynode_get_name(node);
    if (JsonOutput()) {
        switch (vconf_keynode_get_type(node)) {
        case VCONF_TYPE_INT:
            ssotools::PrintJson(KeyJson(name, "int", vconf_keynode_get_int(node)));
            break;
        case VCONF_TYPE_BOOL:
            ssotools::PrintJson(KeyJson(name, "bool", vconf_keynode_get_bool(node) != 0));
            break;
        case VCONF_TYPE_STRING:
            ssotools::PrintJson(KeyJson(name, "string", vconf_keynode_get_str(node)));
            break;
        default:
            ssotools::PrintJson(KeyJson(name, nullptr, Json::Value()));
            break;
        }
        return;
    }
    switch (vconf_keynode_get_type(node)) {
    case VCONF_TYPE_INT:
        std::printf("%s = %d\n", name, vconf_keynode_get_int(node));
        break;
    case VCONF_TYPE_BOOL:
        std::printf("%s = %s\n", name, BoolText(vconf_keynode_get_bool(node)));
        break;
    case VCONF_TYPE_STRING:
        std::printf("%s = %s\n", name, vconf_keynode_get_str(node));
        break;
    default:
        std::printf("%s unset\n", name);
        break;
    }
    std::fflush(stdout);
}

gboolean OnQuitSignal(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop *>(loop));
    return G_SOURCE_CONTINUE;
}

int Watch(const Args &args)
{
    std::vector<std::string> keys;
    for (const std::string &key : args.positional) {
        bool seen = false;
        for (const std::string &k : keys)
            seen = seen || k == key;
        if (!seen)
            keys.push_back(key);
    }
    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    std::vector<std::string> subscribed;
    auto unsubscribe = [&subscribed]() {
        for (const std::string &k : subscribed)
            vconf_ignore_key_changed(k.c_str(), OnChange);
    };
    for (const std::string &key : keys) {
        int rc = vconf_notify_key_changed(key.c_str(), OnChange, nullptr);
        if (rc != VCONF_OK) {
            unsubscribe();
            g_main_loop_unref(loop);
            Check(rc, key);
            throw Failure("cannot watch key '" + key + "'");
        }
        subscribed.push_back(key);
    }
    guint sigint = g_unix_signal_add(SIGINT, OnQuitSignal, loop);
    guint sigterm = g_unix_signal_add(SIGTERM, OnQuitSignal, loop);

    // The first line tells a reader that every subscription is in place.
    if (JsonOutput()) {
        Json::Value watching(Json::arrayValue);
        for (const std::string &key : keys)
            watching.append(key);
        Json::Value first(Json::objectValue);
        first["watching"] = watching;
        ssotools::PrintJson(first);
    } else {
        std::string line = "watching";
        for (const std::string &key : keys)
            line += " " + key;
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
    }

    g_main_loop_run(loop);

    g_source_remove(sigint);
    g_source_remove(sigterm);
    unsubscribe();
    g_main_loop_unref(loop);
    return kExitOk;
}

} // namespace

const Group &VconfGroup()
{
    static const Group group = {
        "vconf",
        "Read, write and watch typed settings keys",
        "Settings are typed keys (int, bool or string) stored under <root>/vconf.\n"
        "Every change made by any process reaches the watchers of the key.",
        {
            {"get",
             "KEY",
             "Print the value of a key",
             "Prints the value alone: an int in decimal, a bool as true or false, a\n"
             "string as it is. Fails with status 1 when the key is not set. With\n"
             "--json: {\"key\": KEY, \"type\": \"int\"|\"bool\"|\"string\", \"value\": VALUE}.\n"
             "\n"
             "Example:\n"
             "  sso-platform vconf get db/sso/login_status",
             {},
             1,
             1,
             Get},
            {"set",
             "KEY VALUE --type TYPE",
             "Write a key",
             "TYPE is int, bool (true, false, 1 or 0) or string. A key keeps its type:\n"
             "writing another type fails until the key is unset.\n"
             "\n"
             "Examples:\n"
             "  sso-platform vconf set db/sso/login_status 1 --type int\n"
             "  sso-platform vconf set --type bool db/sso/enabled true\n"
             "  sso-platform vconf set db/sso/user 'Jane Doe' --type string",
             {{"--type", "TYPE", "The value's type: int, bool or string (required)"}},
             2,
             2,
             Set},
            {"unset",
             "KEY",
             "Remove a key",
             "Removes the key; its watchers see it unset. Fails with status 1 when the\n"
             "key is not set.\n"
             "\n"
             "Example:\n"
             "  sso-platform vconf unset db/sso/user",
             {},
             1,
             1,
             Unset},
            {"watch",
             "KEY...",
             "Print every change of the keys until interrupted",
             "First prints \"watching KEY...\" once every key is watched, then one line a\n"
             "change: \"KEY = VALUE\", or \"KEY unset\". Runs until SIGINT or SIGTERM and\n"
             "then exits with status 0. With --json: {\"watching\": [KEY...]} first, then\n"
             "one {\"key\", \"type\", \"value\"} a change (type and value null: unset).\n"
             "\n"
             "Example:\n"
             "  sso-platform vconf watch db/sso/login_status db/sso/user",
             {},
             1,
             kUnlimited,
             Watch},
        },
    };
    return group;
}

} // namespace ssoplatform
