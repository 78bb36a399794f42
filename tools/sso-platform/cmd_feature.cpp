// sso-platform feature: set, read and remove the device's custom feature
// flags.
#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "sso_platform_common.h"
#include "system_info.h"
#include "tool_json.h"

namespace ssoplatform {

namespace {

// Turns a library result into the tool's error, naming the flag.
void Check(int rc, const std::string &key)
{
    CheckResult(rc, SYSTEM_INFO_ERROR_NONE, key,
                {{SYSTEM_INFO_ERROR_INVALID_PARAMETER, true, "invalid feature key '%s'"},
                 {SYSTEM_INFO_ERROR_NOT_SUPPORTED, false, "feature '%s' is not set"},
                 {SYSTEM_INFO_ERROR_IO_ERROR, false,
                  "feature '%s': the flag is malformed or the feature store is not accessible"},
                 {SYSTEM_INFO_ERROR_OUT_OF_MEMORY, false, "feature '%s': out of memory"}},
                "feature '%s': system info error %d");
}

bool ParseBool(const std::string &text)
{
    if (text == "true" || text == "1")
        return true;
    if (text == "false" || text == "0")
        return false;
    throw UsageError("invalid bool value '" + text + "' (use true, false, 1 or 0)");
}

Json::Value FlagJson(const std::string &key, const Json::Value &value)
{
    Json::Value out(Json::objectValue);
    out["key"] = key;
    out["value"] = value;
    return out;
}

int Get(const Args &args)
{
    const std::string &key = args.positional[0];
    bool value = false;
    Check(system_info_get_custom_bool(key.c_str(), &value), key);
    if (JsonOutput())
        ssotools::PrintJson(FlagJson(key, value));
    else
        std::printf("%s\n", value ? "true" : "false");
    return kExitOk;
}

// The keys of every flag file, sorted; files whose names do not decode are
// not flags.
std::vector<std::string> FlagKeys()
{
    char dir[4096];
    if (sso_platform_path(dir, sizeof(dir), "features") != 0)
        throw Failure("the platform root's path is too long");
    std::vector<std::string> keys;
    DIR *d = opendir(dir);
    if (!d) {
        if (errno == ENOENT)
            return keys; // no flag was ever set
        throw Failure(std::string("cannot read ") + dir + ": " + std::strerror(errno));
    }
    while (const struct dirent *entry = readdir(d)) {
        if (entry->d_name[0] == '.')
            continue;
        if (char *key = sso_platform_decode_name(entry->d_name)) {
            keys.emplace_back(key);
            std::free(key);
        }
    }
    closedir(d);
    std::sort(keys.begin(), keys.end());
    return keys;
}

int List(const Args &)
{
    Json::Value flags(Json::arrayValue);
    for (const std::string &key : FlagKeys()) {
        bool value = false;
        // A malformed flag is listed as such rather than failing the list.
        const bool readable =
            system_info_get_custom_bool(key.c_str(), &value) == SYSTEM_INFO_ERROR_NONE;
        if (JsonOutput())
            flags.append(FlagJson(key, readable ? Json::Value(value) : Json::Value()));
        else
            std::printf("%s\t%s\n", key.c_str(), readable ? (value ? "true" : "false") : "-");
    }
    if (JsonOutput()) {
        Json::Value out(Json::objectValue);
        out["features"] = flags;
        ssotools::PrintJson(out);
    } else {
        std::fflush(stdout);
    }
    return kExitOk;
}

int Set(const Args &args)
{
    const std::string &key = args.positional[0];
    bool value = ParseBool(args.positional[1]);
    Check(system_info_set_custom_bool(key.c_str(), value), key);
    return kExitOk;
}

int Unset(const Args &args)
{
    const std::string &key = args.positional[0];
    Check(system_info_unset_custom(key.c_str()), key);
    return kExitOk;
}

} // namespace

const Group &FeatureGroup()
{
    static const Group group = {
        "feature",
        "Set, read and remove the device's feature flags",
        "Feature flags are booleans under <root>/features, one file a key. A flag\n"
        "that is not set reads as unsupported: the libraries treat the feature as\n"
        "absent. Changes take effect at the next read; nothing caches them.\n"
        "\n"
        "Examples:\n"
        "  sso-platform feature set com.veltra/featureconf/account.signin_mandatory true\n"
        "  sso-platform feature get com.veltra/featureconf/account.signin_mandatory\n"
        "  sso-platform feature unset com.veltra/featureconf/account.signin_mandatory",
        {
            {"get",
             "KEY",
             "Print a flag as true or false",
             "Prints true or false. Fails with status 1 when the flag is not set or\n"
             "its file does not hold a boolean. With --json: {\"key\": KEY, \"value\": BOOL}.\n"
             "\n"
             "Example:\n"
             "  sso-platform feature get com.veltra/featureconf/account.signin_mandatory",
             {},
             1,
             1,
             Get},
            {"set",
             "KEY true|false",
             "Set a flag",
             "Sets the flag, replacing any previous value atomically. The value is\n"
             "true or false (1 and 0 are accepted too).\n"
             "\n"
             "Examples:\n"
             "  sso-platform feature set com.veltra/featureconf/account.signin_mandatory true\n"
             "  sso-platform --root /tmp/device feature set my.feature false",
             {},
             2,
             2,
             Set},
            {"unset",
             "KEY",
             "Remove a flag",
             "Removes the flag, so it reads as not set. Fails with status 1 when it\n"
             "was not set.\n"
             "\n"
             "Example:\n"
             "  sso-platform feature unset com.veltra/featureconf/account.signin_mandatory",
             {},
             1,
             1,
             Unset},
            {"list",
             "",
             "List every flag that is set",
             "Prints one line per flag, ordered by key: the key, a tab, and true,\n"
             "false or - (a file that does not hold a boolean). With --json:\n"
             "{\"features\": [{\"key\": KEY, \"value\": BOOL or null}...]}.\n"
             "\n"
             "Example:\n"
             "  sso-platform feature list",
             {},
             0,
             0,
             List},
        },
    };
    return group;
}

} // namespace ssoplatform
