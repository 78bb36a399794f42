// Helpers of the app_control tests: a GLib main loop on its own thread, a
// recorder of reply callbacks, the test application's records, and running
// sso-platform with its stderr captured.
#pragma once

#include <app_control.h>
#include <app_control_registry.h>
#include <glib.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "loop_thread.h"
#include "records.h"
#include "run_tool.h"
#include "sso_test_harness.h"

namespace apptest {

using namespace std::chrono_literals;

// The test application and the id the tests register it under.
inline std::string TestAppPath()
{
    return ssotest::ToolPath("app_control_test_app");
}
inline constexpr const char *kTestAppId = "org.orvex.test.app";

// The ids of the device's account UI: the account pages, the PIN pad and the
// web account pages.
inline constexpr const char *kAccountApp = "com.veltra.tv.CSAccount";
inline constexpr const char *kPinApp = "com.veltra.tv.CSAccountPIN";
inline constexpr const char *kWebApp = "QHVMP48x7k.WebAccountExtension";

using LoopThread = ssotest::LoopThread;

using Extras = std::vector<std::pair<std::string, std::string>>;

inline bool CollectKey(app_control_h, const char *key, void *keys) noexcept
{
    try {
        static_cast<std::vector<std::string> *>(keys)->push_back(key);
        return true;
    } catch (...) {
        return false;
    }
}

// The extras of a handle in order (empty for a null handle).
inline Extras ExtrasOf(app_control_h h)
{
    Extras out;
    if (!h)
        return out;
    std::vector<std::string> keys;
    app_control_foreach_extra_data(h, CollectKey, &keys);
    for (const std::string &key : keys) {
        char *value = nullptr;
        if (app_control_get_extra_data(h, key.c_str(), &value) == APP_CONTROL_ERROR_NONE) {
            out.emplace_back(key, value);
            std::free(value);
        }
    }
    return out;
}

inline std::string ExtraOf(app_control_h h, const std::string &key)
{
    char *value = nullptr;
    if (!h || app_control_get_extra_data(h, key.c_str(), &value) != APP_CONTROL_ERROR_NONE)
        return "<absent>";
    std::string s = value;
    std::free(value);
    return s;
}

inline std::string AppIdOf(app_control_h h)
{
    char *id = nullptr;
    if (!h || app_control_get_app_id(h, &id) != APP_CONTROL_ERROR_NONE || !id)
        return "<none>";
    std::string s = id;
    std::free(id);
    return s;
}

// One reply callback, copied out of the handles.
struct Reply {
    app_control_result_e result = APP_CONTROL_RESULT_SUCCEEDED;
    bool has_reply = false;
    Extras reply_extras;
    std::string reply_app_id;
    Extras request_extras;
    std::string request_app_id;
    std::thread::id thread;
};

// Records every reply callback it receives; the user data of a request.
class Replies : public ssotest::Records<Reply> {
public:
    static void Callback(app_control_h request, app_control_h reply, app_control_result_e result,
                         void *self) noexcept
    {
        try {
            Reply r;
            r.result = result;
            r.has_reply = reply != nullptr;
            r.reply_extras = ExtrasOf(reply);
            r.reply_app_id = AppIdOf(reply);
            r.request_extras = ExtrasOf(request);
            r.request_app_id = AppIdOf(request);
            r.thread = std::this_thread::get_id();
            auto *replies = static_cast<Replies *>(self);
            // What to run next is read before the reply is recorded: a test
            // that saw the reply may end and take the recorder with it.
            std::function<void()> then;
            {
                std::lock_guard<std::mutex> lock(replies->mutex_);
                then = replies->then_;
            }
            replies->Add(std::move(r));
            if (then)
                then();
        } catch (...) {
            std::abort();
        }
    }

    // Something to run (on the loop thread) after each recorded callback.
    void Then(std::function<void()> fn)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        then_ = std::move(fn);
    }

    bool WaitForCount(size_t n, std::chrono::milliseconds timeout = 20s) const
    {
        return WaitFor(n, timeout);
    }

private:
    std::mutex mutex_; // guards then_
    std::function<void()> then_;
};

// ---- the test application's records ----

inline std::string Unescape(const std::string &s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size()) {
            out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

using ssotest::ReadWholeFile;

inline bool FileExists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

// A record as written by the test application: its lines in order.
struct Record {
    std::vector<std::pair<std::string, std::string>> lines;

    std::string Get(const std::string &name) const
    {
        for (const auto &line : lines)
            if (line.first == name)
                return line.second;
        return "<absent>";
    }

    // The "extra.KEY" lines in order, without the prefix.
    Extras RequestExtras() const
    {
        Extras out;
        for (const auto &line : lines)
            if (line.first.compare(0, 6, "extra.") == 0)
                out.emplace_back(line.first.substr(6), line.second);
        return out;
    }

    pid_t Pid() const { return static_cast<pid_t>(std::atoi(Get("pid").c_str())); }
};

inline Record ParseRecord(const std::string &text)
{
    Record r;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        r.lines.emplace_back(Unescape(line.substr(0, eq)), Unescape(line.substr(eq + 1)));
    }
    return r;
}

// Where the account UI stand-in, run in the platform root root, reads its
// scripts and leaves its records.
inline std::string AccountUiRunDir(const std::string &root)
{
    return root + "/run/sso-account-ui";
}

// Scripts what the account UI stand-in does when launched as appId (as any
// id when appId is ""): "name=value" lines.
inline void ScriptAccountUi(const std::string &root, const std::string &appId,
                            const std::vector<std::string> &lines)
{
    mkdir((root + "/run").c_str(), 0700);
    mkdir(AccountUiRunDir(root).c_str(), 0700);
    const std::string name = appId.empty() ? "script" : appId + ".script";
    std::ofstream out(AccountUiRunDir(root) + "/" + name, std::ios::trunc);
    for (const auto &line : lines)
        out << line << "\n";
}

// Waits for the record at path to appear and reads it.
inline Record WaitForRecord(const std::string &path, std::chrono::milliseconds timeout = 20s)
{
    if (!ssotest::WaitUntil([&] { return FileExists(path); }, timeout))
        ADD_FAILURE() << "no record at " << path;
    return ParseRecord(ReadWholeFile(path));
}

// Whether pid is gone for good: not running and reaped (a zombie still
// answers kill(pid, 0)).
inline bool Reaped(pid_t pid)
{
    return pid > 0 && kill(pid, 0) != 0 && errno == ESRCH;
}

// Whether this process has any child, running or a zombie. Reaps nothing.
inline bool HasChildren()
{
    siginfo_t info;
    info.si_pid = 0;
    return waitid(P_ALL, 0, &info, WEXITED | WSTOPPED | WCONTINUED | WNOHANG | WNOWAIT) == 0 ||
           errno != ECHILD;
}

// ---- running sso-platform ----

using ssotest::CliResult;
using ssotest::RunCli;

} // namespace apptest
