// What a launched application records of its launch request, shared by the
// programs the launcher starts in tests and on the demo device (the account UI
// stand-in, the launch tests' application): one "name=value" line each,
// names and values percent-escaped ('%', '=' and control bytes as %XX),
// written whole or not at all.
#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <app_control.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace ssotools {

using RecordLines = std::vector<std::pair<std::string, std::string>>;

inline std::string Env(const char *name)
{
    const char *v = std::getenv(name);
    return v ? v : "";
}

// Takes a malloc'ed text (or null) the platform handed out.
inline std::string Owned(char *s)
{
    std::string out = s ? s : "";
    std::free(s);
    return out;
}

inline std::string EscapeRecordText(const std::string &s)
{
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : s) {
        if (c == '%' || c == '=' || c < 0x20 || c == 0x7f) {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xf];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// Writes the lines to path through a temporary file and a rename, so a
// reader sees the record whole or not at all. An empty path writes nothing.
inline void WriteRecord(const std::string &path, const RecordLines &lines)
{
    if (path.empty())
        return;
    std::string text;
    for (const auto &line : lines)
        text += EscapeRecordText(line.first) + "=" + EscapeRecordText(line.second) + "\n";
    std::string tmp = path + ".tmp." + std::to_string(getpid());
    std::FILE *f = std::fopen(tmp.c_str(), "wb");
    if (!f)
        return;
    bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    ok = std::fclose(f) == 0 && ok;
    if (ok)
        std::rename(tmp.c_str(), path.c_str());
    else
        std::remove(tmp.c_str());
}

// The keys of the request's extras, in the request's order.
inline std::vector<std::string> ExtraKeys(app_control_h h)
{
    std::vector<std::string> keys;
    app_control_foreach_extra_data(
        h,
        [](app_control_h, const char *key, void *out) noexcept {
            try {
                static_cast<std::vector<std::string> *>(out)->push_back(key);
                return true;
            } catch (...) {
                return false;
            }
        },
        &keys);
    return keys;
}

// Adds app_id, caller, operation, launch_mode (single or group) and an
// "extra.KEY" line per extra of the request.
inline void RecordRequest(app_control_h request, RecordLines &record)
{
    char *s = nullptr;
    app_control_get_app_id(request, &s);
    record.emplace_back("app_id", Owned(s));
    s = nullptr;
    app_control_get_caller(request, &s);
    record.emplace_back("caller", Owned(s));
    s = nullptr;
    app_control_get_operation(request, &s);
    record.emplace_back("operation", Owned(s));
    app_control_launch_mode_e mode = APP_CONTROL_LAUNCH_MODE_SINGLE;
    app_control_get_launch_mode(request, &mode);
    record.emplace_back("launch_mode", mode == APP_CONTROL_LAUNCH_MODE_GROUP ? "group" : "single");
    for (const std::string &key : ExtraKeys(request)) {
        char *value = nullptr;
        if (app_control_get_extra_data(request, key.c_str(), &value) == APP_CONTROL_ERROR_NONE)
            record.emplace_back("extra." + key, Owned(value));
    }
}

// A launched application never outlives whoever launched it, and leaves no
// core file behind when it crashes on purpose.
inline void DieWithLauncher()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    struct rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
}

// What main() returns: run's exit status, or 4 when it threw.
template <class Fn> int RunLaunched(Fn run) noexcept
{
    try {
        return run();
    } catch (...) {
        return 4;
    }
}

} // namespace ssotools
