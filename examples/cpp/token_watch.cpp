// An application with a GLib main loop: it follows the login state and asks
// for an access token whenever a user is signed in.
//
// Two threads matter. Login-state changes are delivered on the thread that
// runs the main loop (here: main), because the subscription is made from it.
// Token results arrive on the library's own thread; the callback copies what
// it needs and hands it to the main loop with g_main_context_invoke(), so all
// printing and all application state stay on one thread.
//
// Build it against an installed tree with:
//   c++ -std=c++17 token_watch.cpp $(pkg-config --cflags --libs sso_api glib-2.0)
//
// usage: token_watch [--app-id ID] [--secret KEY] [--scope SCOPE] [--timeout SECONDS]
// Stops on SIGINT or SIGTERM, or after --timeout seconds (default 30, 0: never).
#include <sso_api/sso_api.h>

#include <glib-unix.h>
#include <glib.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

struct Options {
    std::string app_id = "org.example.tokenwatch";
    std::string secret = "example-secret";
    std::string scope; // empty: no scope
    unsigned timeout_s = 30;
};

// Application state. Touched only on the main-loop thread.
struct App {
    Options options;
    GMainLoop *loop = nullptr;
    const char *stop_reason = "";
    int tokens = 0;
};

// Read-only once main has started the library.
std::thread::id g_main_thread;

// A token is a secret: show only enough of it to recognise it.
std::string Masked(const std::string &secret)
{
    if (secret.size() <= 6)
        return std::string(secret.size(), '*');
    return secret.substr(0, 6) + "... (" + std::to_string(secret.size()) + " characters)";
}

void Say(const std::string &line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

// What a token callback hands to the main loop.
struct TokenResult {
    App *app;
    int result;
    std::string token;
    bool on_main_thread;
};

// The main context orders the hand-over with a lock of its own, inside GLib;
// this one orders it again where ThreadSanitizer can see it.
std::mutex g_hand_over;

// Runs on the main-loop thread.
gboolean ShowTokenResult(gpointer data)
{
    std::lock_guard<std::mutex> lock(g_hand_over);
    std::unique_ptr<TokenResult> r(static_cast<TokenResult *>(data));
    const char *where = r->on_main_thread ? "the main thread" : "the library's thread";
    if (r->result == 0) {
        r->app->tokens++;
        Say("access token: " + Masked(r->token) + ", delivered on " + where);
    } else {
        Say("access token request failed: result " + std::to_string(r->result) + ", delivered on " +
            where);
    }
    return G_SOURCE_REMOVE;
}

// Runs on the library's thread: copy, hand over, return quickly (a callback
// that blocks holds up every later result of the process).
int OnAccessToken(void *user_data, int result, char *access_token) noexcept
{
    try {
        TokenResult *r = nullptr;
        {
            std::lock_guard<std::mutex> lock(g_hand_over);
            r = new TokenResult{static_cast<App *>(user_data), result,
                                access_token ? access_token : "",
                                std::this_thread::get_id() == g_main_thread};
        }
        g_main_context_invoke(nullptr, ShowTokenResult, r);
    } catch (...) {
        // Nothing may unwind into the library.
    }
    return 0;
}

// The request blocks this thread until the service accepts or refuses it
// (at most 5 s); the token itself arrives later through OnAccessToken.
void RequestToken(App *app)
{
    const Options &o = app->options;
    Say("requesting an access token for " + o.app_id);
    int rc = sso_request_access_token_with_scope(o.app_id.c_str(), o.secret.c_str(),
                                                 o.scope.empty() ? nullptr : o.scope.c_str(),
                                                 OnAccessToken, app);
    if (rc != 0)
        Say("the SSO service did not accept the request");
}

// Runs on the main-loop thread. text is the login id.
int OnLoginStateChanged(void *user_data, int, sso_login_state state, char *text, char *) noexcept
{
    try {
        auto *app = static_cast<App *>(user_data);
        if (state == SSO_LOGEDIN) {
            Say(std::string("login state changed: signed in as ") + (text ? text : ""));
            RequestToken(app);
        } else {
            Say("login state changed: signed out");
        }
    } catch (...) {
    }
    return 0;
}

gboolean OnStopSignal(gpointer data)
{
    auto *app = static_cast<App *>(data);
    app->stop_reason = "interrupted";
    g_main_loop_quit(app->loop);
    return G_SOURCE_CONTINUE; // removed after the loop
}

gboolean OnTimeout(gpointer data)
{
    auto *app = static_cast<App *>(data);
    app->stop_reason = "time-out";
    g_main_loop_quit(app->loop);
    return G_SOURCE_CONTINUE;
}

bool ParseArgs(int argc, char **argv, Options &o)
{
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (i + 1 >= argc)
            return false;
        std::string value = argv[++i];
        if (arg == "--app-id")
            o.app_id = value;
        else if (arg == "--secret")
            o.secret = value;
        else if (arg == "--scope")
            o.scope = value;
        else if (arg == "--timeout")
            o.timeout_s = static_cast<unsigned>(std::strtoul(value.c_str(), nullptr, 10));
        else
            return false;
    }
    return !o.app_id.empty() && !o.secret.empty();
}

} // namespace

int main(int argc, char **argv)
{
    // Static: a token result still on its way at exit carries its address
    // (the callback only passes it on; the loop no longer runs then).
    static App app;
    if (!ParseArgs(argc, argv, app.options)) {
        std::fprintf(stderr,
                     "usage: %s [--app-id ID] [--secret KEY] [--scope SCOPE] "
                     "[--timeout SECONDS]\n",
                     argv[0]);
        return 2;
    }
    g_main_thread = std::this_thread::get_id();

    // The default main context is this thread's: subscriptions made here
    // notify here.
    app.loop = g_main_loop_new(nullptr, FALSE);
    guint sigint = g_unix_signal_add(SIGINT, OnStopSignal, &app);
    guint sigterm = g_unix_signal_add(SIGTERM, OnStopSignal, &app);
    guint timer =
        app.options.timeout_s ? g_timeout_add_seconds(app.options.timeout_s, OnTimeout, &app) : 0;

    if (sso_subscribe_login_state_change(OnLoginStateChanged, &app) != 0)
        Say("cannot follow the login state");

    sso_login_state state = SSO_NOT_LOGIN;
    sso_get_login_state(&state);
    sso_login_info_s info;
    if (state == SSO_LOGEDIN && sso_get_login_info(&info) == 0) {
        Say(std::string("login state: signed in as ") + info.login_id);
        RequestToken(&app);
    } else {
        Say("login state: signed out");
    }

    Say("waiting for login changes (Ctrl-C to stop)");
    g_main_loop_run(app.loop);
    Say(std::string("stopped: ") + app.stop_reason +
        ", tokens received: " + std::to_string(app.tokens));

    sso_unsubscribe_login_state_change();
    g_source_remove(sigint);
    g_source_remove(sigterm);
    if (timer)
        g_source_remove(timer);
    g_main_loop_unref(app.loop);
    return 0;
}
