// sso-account-ui-test: the account UI applications of the demo device and of
// the tests. One program serves the three account UI ids; it learns which one
// it is from SSO_PLATFORM_APP_ID.
//
// What it does when launched:
//   1. reads its launch request and records it (file below);
//   2. for an account page (a request with a "page" or "path" extra) sets
//      "memory/sso/view_status" to 1 while "showing";
//   3. optionally signs a user in through the SSO service simulator;
//   4. sets "memory/sso/view_status" back to 0 (account pages);
//   5. replies to the request as scripted, then writes "<record>.done".
//
// Record: $SSO_ACCOUNT_UI_RECORD, else
// $SSO_PLATFORM_ROOT/run/sso-account-ui/<app id>.record. One "name=value" line
// each for pid, env.SSO_PLATFORM_APP_ID, get_launch_request (result code),
// app_id, caller, operation, launch_mode (single or group), then
// "extra.KEY=VALUE" per extra in the request's order. Names and values are
// percent-escaped ('%', '=' and control bytes as %XX). Written atomically.
//
// Script: $SSO_ACCOUNT_UI_SCRIPT, else
// $SSO_PLATFORM_ROOT/run/sso-account-ui/<app id>.script, else
// $SSO_PLATFORM_ROOT/run/sso-account-ui/script; none means the defaults.
// "name=value" lines (values percent-unescaped, '#' lines ignored):
//   action      reply (default) | none (exit without replying) | crash (abort)
//               | hang (wait until killed)
//   app_result  succeeded (default) | failed | cancelled
//   Result      the reply's "Result" extra (absent: not sent)
//   Response    the reply's "Response" extra (absent: not sent)
//   view        auto (default: 1 then 0 for account pages) | keep (1, never
//               back to 0) | off (untouched)
//   sign_in     LOGIN_ID|GUID: signs it in through the SSO service simulator
//               before the view closes
//   sign_in_via bus (default: the simulator's control interface on the
//               system bus) | cli (`sso-simulator ctl sign-in`, the simulator
//               beside this program, else on PATH)
//
// Exit status: 0 done, 3 not launched with a request, 5 the sign-in failed
// (the view is still closed and the reply still sent).
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <app_control.h>
#include <gio/gio.h>
#include <vconf.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "../common/launch_record.h"

namespace {

constexpr const char *kViewStateKey = "memory/sso/view_status";

using Lines = ssotools::RecordLines;
using ssotools::Env;

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::string Unescape(const std::string &s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size() && HexDigit(s[i + 1]) >= 0 && HexDigit(s[i + 2]) >= 0) {
            out += static_cast<char>(HexDigit(s[i + 1]) * 16 + HexDigit(s[i + 2]));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

// App ids become file names: bytes outside [A-Za-z0-9_.-] as %XX.
std::string FileNameOf(const std::string &id)
{
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : id) {
        if (std::isalnum(c) || c == '_' || c == '.' || c == '-') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xf];
        }
    }
    return out.empty() ? "unknown" : out;
}

bool FileExists(const std::string &path)
{
    return !path.empty() && access(path.c_str(), F_OK) == 0;
}

void MakeDirs(const std::string &dir)
{
    std::string partial;
    for (size_t i = 0; i <= dir.size(); ++i) {
        if (i == dir.size() || dir[i] == '/') {
            if (!partial.empty())
                mkdir(partial.c_str(), 0700);
        }
        if (i < dir.size())
            partial += dir[i];
    }
}

// Writes the record, making its directory first.
void WriteRecord(const std::string &path, const Lines &lines)
{
    size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0)
        MakeDirs(path.substr(0, slash));
    ssotools::WriteRecord(path, lines);
}

std::map<std::string, std::string> ReadScript(const std::string &path)
{
    std::map<std::string, std::string> script;
    std::FILE *f = path.empty() ? nullptr : std::fopen(path.c_str(), "rb");
    if (!f)
        return script;
    std::string text;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0)
        text.append(buf, n);
    std::fclose(f);
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line[0] == '#')
            continue;
        size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        script[Unescape(line.substr(0, eq))] = Unescape(line.substr(eq + 1));
    }
    return script;
}

bool HasExtra(app_control_h h, const char *key)
{
    char *value = nullptr;
    if (app_control_get_extra_data(h, key, &value) != APP_CONTROL_ERROR_NONE)
        return false;
    std::free(value);
    return true;
}

// The simulator's control CLI: beside this program when built or installed
// together, else wherever PATH finds it.
std::string SimulatorPath()
{
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n > 0) {
        std::string path(self, static_cast<size_t>(n));
        size_t slash = path.rfind('/');
        if (slash != std::string::npos) {
            std::string sibling = path.substr(0, slash + 1) + "sso-simulator";
            if (access(sibling.c_str(), X_OK) == 0)
                return sibling;
        }
    }
    return "sso-simulator";
}

// The simulator's control object, called directly on the system bus: no
// extra process between the page and the service.
int SignInOverBus(const std::string &who)
{
    GError *error = nullptr;
    GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (bus == nullptr) {
        std::fprintf(stderr, "sso-account-ui-test: no system bus: %s\n",
                     error ? error->message : "?");
        g_clear_error(&error);
        return -1;
    }
    GVariant *reply = g_dbus_connection_call_sync(
        bus, "org.orvex.tv.ssoservice.server", "/org/orvex/tv/ssoservice/simulator",
        "org.orvex.tv.ssoservice.simulator.Control", "SignIn", g_variant_new("(s)", who.c_str()),
        G_VARIANT_TYPE("()"), G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
    int status = 0;
    if (reply == nullptr) {
        std::fprintf(stderr, "sso-account-ui-test: sign-in refused: %s\n",
                     error ? error->message : "?");
        g_clear_error(&error);
        status = 1;
    } else {
        g_variant_unref(reply);
    }
    g_object_unref(bus);
    return status;
}

// Exit status of `sso-simulator ctl sign-in ID`, -1 when it could not run.
int SignInWithCli(const std::string &who)
{
    const std::string program = SimulatorPath();
    pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        execlp(program.c_str(), program.c_str(), "ctl", "sign-in", who.c_str(),
               static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int Run()
{
    // A stand-in never outlives whoever launched it, and leaves no core file
    // behind when scripted to crash.
    ssotools::DieWithLauncher();

    const std::string appId = Env("SSO_PLATFORM_APP_ID");
    const std::string root = Env("SSO_PLATFORM_ROOT");
    const std::string runDir = root.empty() ? "" : root + "/run/sso-account-ui";
    std::string recordPath = Env("SSO_ACCOUNT_UI_RECORD");
    if (recordPath.empty() && !runDir.empty())
        recordPath = runDir + "/" + FileNameOf(appId) + ".record";
    std::string scriptPath = Env("SSO_ACCOUNT_UI_SCRIPT");
    if (scriptPath.empty() && !runDir.empty()) {
        scriptPath = runDir + "/" + FileNameOf(appId) + ".script";
        if (!FileExists(scriptPath))
            scriptPath = runDir + "/script";
    }
    std::map<std::string, std::string> script = ReadScript(scriptPath);
    auto Script = [&script](const char *name, const char *fallback) {
        auto it = script.find(name);
        return it == script.end() ? std::string(fallback) : it->second;
    };

    app_control_h request = nullptr;
    int rc = app_control_get_launch_request(&request);
    Lines record = {
        {"pid", std::to_string(getpid())},
        {"env.SSO_PLATFORM_APP_ID", appId},
        {"get_launch_request", std::to_string(rc)},
    };
    if (rc != APP_CONTROL_ERROR_NONE) {
        WriteRecord(recordPath, record);
        std::fprintf(stderr, "sso-account-ui-test: not launched with a request (%d)\n", rc);
        return 3;
    }

    ssotools::RecordRequest(request, record);
    WriteRecord(recordPath, record);

    const std::string action = Script("action", "reply");
    if (action == "crash")
        std::abort();
    if (action == "hang") {
        for (;;)
            pause();
    }

    Lines done;
    const bool accountPage = HasExtra(request, "page") || HasExtra(request, "path");
    const std::string view = Script("view", "auto");
    if (accountPage && view != "off") {
        done.emplace_back("view_on", std::to_string(vconf_set_int(kViewStateKey, 1)));
    }
    int exitCode = 0;
    const std::string who = Script("sign_in", "");
    if (!who.empty()) {
        int status =
            Script("sign_in_via", "bus") == "cli" ? SignInWithCli(who) : SignInOverBus(who);
        done.emplace_back("sign_in", std::to_string(status));
        if (status != 0)
            exitCode = 5;
    }
    if (accountPage && view == "auto")
        done.emplace_back("view_off", std::to_string(vconf_set_int(kViewStateKey, 0)));

    if (action == "reply") {
        app_control_h reply = nullptr;
        app_control_create(&reply);
        auto result = script.find("Result");
        if (result != script.end())
            app_control_add_extra_data(reply, "Result", result->second.c_str());
        auto response = script.find("Response");
        if (response != script.end())
            app_control_add_extra_data(reply, "Response", response->second.c_str());
        const std::string appResult = Script("app_result", "succeeded");
        app_control_result_e code = APP_CONTROL_RESULT_SUCCEEDED;
        if (appResult == "failed")
            code = APP_CONTROL_RESULT_FAILED;
        else if (appResult == "cancelled" || appResult == "canceled")
            code = APP_CONTROL_RESULT_CANCELED;
        done.emplace_back(
            "reply", std::to_string(app_control_reply_to_launch_request(reply, request, code)));
        app_control_destroy(reply);
    }
    app_control_destroy(request);
    if (!recordPath.empty())
        WriteRecord(recordPath + ".done", done);
    return exitCode;
}

} // namespace

int main()
{
    return ssotools::RunLaunched(Run);
}
