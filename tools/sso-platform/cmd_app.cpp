// sso-platform app: register, remove and list the applications the launcher
// can start.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app_control_registry.h"
#include "cli.h"
#include "tool_json.h"

namespace ssoplatform {

namespace {

// Turns a library result into the tool's error, naming the application.
void Check(int rc, const std::string &app_id)
{
    CheckResult(rc, APP_CONTROL_ERROR_NONE, app_id,
                {{APP_CONTROL_ERROR_INVALID_PARAMETER, true,
                  "invalid application id '%s' (1 to 255 bytes, no control characters)"},
                 {APP_CONTROL_ERROR_APP_NOT_FOUND, false, "application '%s' is not registered"},
                 {APP_CONTROL_ERROR_IO_ERROR, false,
                  "application '%s': the application registry is not accessible"},
                 {APP_CONTROL_ERROR_OUT_OF_MEMORY, false, "application '%s': out of memory"}},
                "application '%s': app control error %d");
}

// The program's absolute path; it must be an executable regular file now.
std::string ExecPath(const std::string &given)
{
    if (given.empty())
        throw UsageError("--exec needs a program path");
    if (given.find('\n') != std::string::npos)
        throw UsageError("invalid program path (it holds a newline)");
    std::string path = given;
    if (path[0] != '/') {
        char *cwd = getcwd(nullptr, 0);
        if (!cwd)
            throw Failure("cannot resolve '" + given + "': " + std::strerror(errno));
        path = std::string(cwd) + "/" + given;
        std::free(cwd);
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        throw Failure("program '" + path + "': " + std::strerror(errno));
    if (!S_ISREG(st.st_mode) || access(path.c_str(), X_OK) != 0)
        throw Failure("program '" + path + "' is not an executable file");
    return path;
}

int Add(const Args &args)
{
    const std::string &app_id = args.positional[0];
    if (!args.Has("--exec"))
        throw UsageError("missing --exec PATH; usage: sso-platform app add APP_ID --exec PATH");
    std::string exec = ExecPath(args.Get("--exec"));
    Check(app_control_register_app(app_id.c_str(), exec.c_str()), app_id);
    return kExitOk;
}

int Remove(const Args &args)
{
    const std::string &app_id = args.positional[0];
    Check(app_control_unregister_app(app_id.c_str()), app_id);
    return kExitOk;
}

bool PrintApp(const char *app_id, const char *exec_path, void *) noexcept
{
    std::printf("%s\t%s\n", app_id, exec_path);
    return true;
}

bool CollectApp(const char *app_id, const char *exec_path, void *apps) noexcept
{
    try {
        Json::Value app(Json::objectValue);
        app["app_id"] = app_id;
        app["exec"] = exec_path;
        static_cast<Json::Value *>(apps)->append(app);
        return true;
    } catch (...) {
        return false;
    }
}

int List(const Args &)
{
    Json::Value apps(Json::arrayValue);
    int rc = JsonOutput() ? app_control_foreach_registered_app(CollectApp, &apps)
                          : app_control_foreach_registered_app(PrintApp, nullptr);
    if (rc != APP_CONTROL_ERROR_NONE)
        throw Failure("the application registry is not accessible");
    if (JsonOutput()) {
        Json::Value out(Json::objectValue);
        out["apps"] = apps;
        ssotools::PrintJson(out);
    }
    if (std::fflush(stdout) != 0)
        throw Failure("cannot write to stdout: " + std::string(std::strerror(errno)));
    return kExitOk;
}

} // namespace

const Group &AppGroup()
{
    static const Group group = {
        "app",
        "Register, remove and list launchable applications",
        "The launcher starts an application by running the program registered\n"
        "for its id under <root>/apps. The program gets SSO_PLATFORM_APP_ID set to\n"
        "the id and reads its launch request through the app_control library.\n"
        "\n"
        "Examples:\n"
        "  sso-platform app add org.orvex.account.signin --exec /usr/bin/signin-ui\n"
        "  sso-platform app list\n"
        "  sso-platform app rm org.orvex.account.signin",
        {
            {"add",
             "APP_ID --exec PATH",
             "Register an application",
             "Registers PATH as the program of APP_ID, replacing any previous\n"
             "registration. PATH must be an executable file; a relative PATH is taken\n"
             "from the current directory and stored absolute.\n"
             "\n"
             "Examples:\n"
             "  sso-platform app add org.orvex.account.signin --exec /usr/bin/signin-ui\n"
             "  sso-platform --root /tmp/device app add my.app --exec ./build/bin/my-app",
             {{"--exec", "PATH", "The program to run for the application (required)"}},
             1,
             1,
             Add},
            {"rm",
             "APP_ID",
             "Remove an application",
             "Removes the registration; launching the id fails afterwards. Fails with\n"
             "status 1 when it is not registered.\n"
             "\n"
             "Example:\n"
             "  sso-platform app rm org.orvex.account.signin",
             {},
             1,
             1,
             Remove},
            {"list",
             "",
             "List the registered applications",
             "Prints one line per application, ordered by id: the id, a tab, and\n"
             "the program's path. Prints nothing when none is registered. With --json:\n"
             "{\"apps\": [{\"app_id\": ID, \"exec\": PATH}...]}.\n"
             "\n"
             "Example:\n"
             "  sso-platform app list",
             {},
             0,
             0,
             List},
        },
    };
    return group;
}

} // namespace ssoplatform
