// An application with a GLib main loop, written with the C++ API: it has the
// user sign in through the account UI, waits for the login notification, then
// asks for an access token with a deadline and prints it masked.
//
// Everything the C++ API calls back runs on this thread's main loop (the
// default delivery), so the application needs no locks and no hand-over of
// its own. Subscriptions and pending requests are RAII objects: when main
// returns they are gone, and nothing calls back into freed state.
//
// Build it against an installed tree with:
//   c++ -std=c++17 sign_in_token.cpp $(pkg-config --cflags --libs sso_api_cxx)
//
// usage: sign_in_token [--app-id ID] [--secret KEY] [--scope SCOPE] [--caller ID]
//                      [--deadline SECONDS] [--timeout SECONDS]
// Exits 0 once a token was printed, 1 when none came (refused, deadline,
// --timeout passed), 2 on bad usage.
#include <sso_api/sso_api.hpp>

#include <glib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

namespace {

struct Options {
    std::string app_id = "org.example.signin";
    std::string secret = "example-secret";
    std::string scope; // empty: no scope
    std::string caller = "org.example.signin";
    unsigned deadline_s = 5;
    unsigned timeout_s = 60;
};

// The sign-in page of the account UI.
constexpr int kSignInPage = 1;

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

std::string Why(const std::error_code &error)
{
    if (error.category() == sso::category())
        return sso::name(static_cast<sso::errc>(error.value()));
    return error.message();
}

class App {
public:
    explicit App(Options options) : options_(std::move(options)) {}

    int Run()
    {
        loop_ = g_main_loop_new(nullptr, FALSE);
        guint timer = g_timeout_add_seconds(options_.timeout_s, &App::OnTimeout, this);

        // Made here, on the main-loop thread: sign-ins are noticed here.
        auto sub = sso::on_sign_in([this](const sso::LoginEvent &e) { OnSignedIn(e); });
        if (!sub) {
            Say("cannot follow the login state: " + Why(sub.error()));
            return Finish(timer, 1);
        }
        sign_in_ = std::move(sub.value());

        sso::Expected<sso::LoginState> state = sso::login_state();
        if (state && *state == sso::LoginState::signed_in) {
            sso::Expected<sso::Text> id = sso::login_id();
            Say("already signed in as " + (id ? id->str() : std::string("?")));
            RequestToken();
        } else {
            Say("opening the sign-in page");
            page_ = sso::show_account_page(
                {kSignInPage, std::nullopt, options_.caller}, [](sso::Result<sso::Nothing> r) {
                    if (r)
                        Say("the sign-in page closed");
                    else
                        Say("the sign-in page failed: " + Why(r.error()));
                });
        }
        g_main_loop_run(loop_);
        return Finish(timer, got_token_ ? 0 : 1);
    }

private:
    // Runs on the main loop.
    void OnSignedIn(const sso::LoginEvent &e)
    {
        Say("login notification: signed in as " + e.login_id);
        RequestToken();
    }

    void RequestToken()
    {
        if (token_.pending())
            return;
        Say("requesting an access token for " + options_.app_id + " (deadline " +
            std::to_string(options_.deadline_s) + " s)");
        std::optional<std::string> scope;
        if (!options_.scope.empty())
            scope = options_.scope;
        token_ = sso::request_access_token(
            {options_.app_id, options_.secret, scope},
            [this](sso::Result<std::string> r) { OnToken(r); },
            std::chrono::seconds(options_.deadline_s));
    }

    // Runs on the main loop.
    void OnToken(const sso::Result<std::string> &r)
    {
        if (r) {
            got_token_ = true;
            Say("access token: " + Masked(r.value()));
        } else if (r.answered()) {
            Say("the service refused the token: result " + std::to_string(r.code()));
        } else {
            Say("no access token: " + Why(r.error()));
        }
        g_main_loop_quit(loop_);
    }

    static gboolean OnTimeout(gpointer self)
    {
        Say("stopped: time-out");
        g_main_loop_quit(static_cast<App *>(self)->loop_);
        return G_SOURCE_REMOVE;
    }

    int Finish(guint timer, int status)
    {
        // Nothing may call back into this object once it returns.
        token_ = sso::ScopedRequest();
        page_ = sso::ScopedRequest();
        sign_in_.reset();
        if (g_main_context_find_source_by_id(nullptr, timer) != nullptr)
            g_source_remove(timer);
        g_main_loop_unref(loop_);
        return status;
    }

    const Options options_;
    GMainLoop *loop_ = nullptr;
    sso::Subscription sign_in_;
    sso::ScopedRequest page_;
    sso::ScopedRequest token_;
    bool got_token_ = false;
};

bool ParseArgs(int argc, char **argv, Options &o)
{
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 >= argc)
            return false;
        std::string arg = argv[i], value = argv[i + 1];
        if (arg == "--app-id")
            o.app_id = value;
        else if (arg == "--secret")
            o.secret = value;
        else if (arg == "--scope")
            o.scope = value;
        else if (arg == "--caller")
            o.caller = value;
        else if (arg == "--deadline")
            o.deadline_s = static_cast<unsigned>(std::strtoul(value.c_str(), nullptr, 10));
        else if (arg == "--timeout")
            o.timeout_s = static_cast<unsigned>(std::strtoul(value.c_str(), nullptr, 10));
        else
            return false;
    }
    return !o.app_id.empty() && !o.secret.empty() && o.timeout_s > 0;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!ParseArgs(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: %s [--app-id ID] [--secret KEY] [--scope SCOPE] [--caller ID] "
                     "[--deadline SECONDS] [--timeout SECONDS]\n",
                     argv[0]);
        return 2;
    }
    App app(options);
    return app.Run();
}
