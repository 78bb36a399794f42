// sso-platform feature: set, read and remove the device's custom feature
// flags.
#include <cstdio>
#include <string>

#include "cli.h"
#include "system_info.h"

namespace ssoplatform {

namespace {

// Turns a library result into the tool's error, naming the flag.
void Check(int rc, const std::string &key)
{
    switch (rc) {
    case SYSTEM_INFO_ERROR_NONE:
        return;
    case SYSTEM_INFO_ERROR_INVALID_PARAMETER:
        throw UsageError("invalid feature key '" + key + "'");
    case SYSTEM_INFO_ERROR_NOT_SUPPORTED:
        throw Failure("feature '" + key + "' is not set");
    case SYSTEM_INFO_ERROR_IO_ERROR:
        throw Failure("feature '" + key +
                      "': the flag is malformed or the feature store is not accessible");
    case SYSTEM_INFO_ERROR_OUT_OF_MEMORY:
        throw Failure("feature '" + key + "': out of memory");
    default:
        throw Failure("feature '" + key + "': system info error " + std::to_string(rc));
    }
}

bool ParseBool(const std::string &text)
{
    if (text == "true" || text == "1")
        return true;
    if (text == "false" || text == "0")
        return false;
    throw UsageError("invalid bool value '" + text + "' (use true, false, 1 or 0)");
}

int Get(const Args &args)
{
    const std::string &key = args.positional[0];
    bool value = false;
    Check(system_info_get_custom_bool(key.c_str(), &value), key);
    std::printf("%s\n", value ? "true" : "false");
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
             "its file does not hold a boolean.\n"
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
        },
    };
    return group;
}

} // namespace ssoplatform
