// Waiting for one asynchronous result. Results of service requests arrive on
// the library's own thread and account UI results on the main loop; either
// way they are handed to the GLib main loop of the default context before
// anything is printed.
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "ssoctl.h"

namespace ssoctl {

const char *const kUserInfoFields[9] = {"user_id",    "prefix_name",   "first_name",
                                        "last_name",  "birth_date",    "zip_code",
                                        "mobile_num", "receive_email", "auth"};

namespace {

struct Delivery {
    Pending *pending;
    int result;
    std::vector<std::string> texts;
    bool text_null;
};

// Orders each hand-over once more, where ThreadSanitizer can see it: the main
// context's own lock is taken inside GLib, which is not instrumented.
std::mutex g_handOverLock;

gboolean DeliverOnLoop(gpointer data)
{
    std::lock_guard<std::mutex> lock(g_handOverLock);
    std::unique_ptr<Delivery> d(static_cast<Delivery *>(data));
    Pending *p = d->pending;
    if (p->done || p->timed_out)
        return G_SOURCE_REMOVE;
    p->done = true;
    p->result = d->result;
    p->texts = std::move(d->texts);
    p->text_null = d->text_null;
    g_main_loop_quit(p->loop);
    return G_SOURCE_REMOVE;
}

// Runs on whichever thread the library calls back on; the main loop takes
// over from here.
void HandOver(void *user_data, int result, std::vector<std::string> texts, bool text_null)
{
    Delivery *d = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_handOverLock);
        d = new Delivery{static_cast<Pending *>(user_data), result, std::move(texts), text_null};
    }
    g_main_context_invoke(nullptr, DeliverOnLoop, d);
}

std::string Text(const char *s)
{
    return s ? s : "";
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

// Every wait's state stays reachable from here for the life of the process.
std::vector<Pending *> &PendingStates()
{
    static auto *all = new std::vector<Pending *>();
    return *all;
}

} // namespace

int OnText(void *user_data, int result, char *text)
{
    HandOver(user_data, result, {Text(text)}, text == nullptr);
    return 0;
}

int OnResultOnly(void *user_data, int result)
{
    HandOver(user_data, result, {}, true);
    return 0;
}

int OnIdentify(void *user_data, int result, char *birthday, char *url)
{
    HandOver(user_data, result, {Text(birthday), Text(url)}, birthday == nullptr);
    return 0;
}

int OnUserInfo(void *user_data, int result, sso_user_info info)
{
    // Every field is NUL-terminated by the library; copy them bounded anyway.
    auto field = [](const char *s, size_t n) { return std::string(s, strnlen(s, n)); };
    HandOver(
        user_data, result,
        {field(info.user_id, sizeof info.user_id), field(info.prefix_name, sizeof info.prefix_name),
         field(info.first_name, sizeof info.first_name),
         field(info.last_name, sizeof info.last_name),
         field(info.birth_date, sizeof info.birth_date), field(info.zip_code, sizeof info.zip_code),
         field(info.mobile_num, sizeof info.mobile_num),
         field(info.receive_email, sizeof info.receive_email), field(info.auth, sizeof info.auth)},
        false);
    return 0;
}

int OnNameCheck(void *user_data, bool success, char *birth_date, char *age, char *check_url)
{
    HandOver(user_data, success ? 0 : -1, {Text(birth_date), Text(age), Text(check_url)},
             birth_date == nullptr);
    return 0;
}

Pending *NewPending()
{
    auto *p = new Pending;
    p->loop = g_main_loop_new(nullptr, FALSE);
    PendingStates().push_back(p);
    return p;
}

int AwaitResult(Pending *p, const Invocation &inv, const std::string &what)
{
    // Account UI results may come before the request returns.
    if (!p->done) {
        guint timer = g_timeout_add(static_cast<guint>(inv.timeout_ms), OnTimeout, p);
        g_main_loop_run(p->loop);
        if (!p->timed_out)
            g_source_remove(timer);
    }
    if (p->timed_out) {
        if (inv.json) {
            Json::Value v(Json::objectValue);
            v["ok"] = false;
            v["timed_out"] = true;
            v["timeout_ms"] = inv.timeout_ms;
            PrintJson(v);
        }
        return Fail(what + ": timed out after " + std::to_string(inv.timeout_ms) +
                        " ms waiting for the result",
                    kExitTimedOut);
    }
    return kExitOk;
}

} // namespace ssoctl
