#include "daemon.h"

#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>

#include "account_service.h"
#include "behaviour.h"
#include "contract.h"
#include "control.h"
#include "delivery.h"
#include "families.h"
#include "payloads.h"
#include "service.h"
#include "sim_log.h"
#include "timers.h"

namespace ssosim {

namespace {

constexpr const char *kDefaultAppId = "org.orvex.ssoservice";

// Everything the daemon runs on, torn down in reverse order.
struct Daemon {
    GMainLoop *loop = nullptr;
    GDBusConnection *connection = nullptr;
    int exit_code = 0;
    bool acquired = false;
    std::string object_name;

    std::unique_ptr<Contract> contract;
    std::unique_ptr<AccountService> accounts;
    std::unique_ptr<RequestFamilies> families;
    std::unique_ptr<BehaviourTable> behaviours;
    std::unique_ptr<PayloadProvider> payloads;
    std::unique_ptr<Timers> timers;
    std::unique_ptr<Delivery> delivery;
    std::unique_ptr<Service> service;
    std::unique_ptr<Control> control;

    void Quit(int code)
    {
        if (code != 0)
            exit_code = code;
        g_main_loop_quit(loop);
    }
};

gboolean OnStopSignal(gpointer data)
{
    auto *d = static_cast<Daemon *>(data);
    SIM_LOGI("stop signal received; exiting");
    d->Quit(0);
    return G_SOURCE_CONTINUE;
}

void OnNameAcquired(GDBusConnection *, const gchar *name, gpointer data)
{
    auto *d = static_cast<Daemon *>(data);
    d->acquired = true;
    SIM_LOGI("owns %s as %s; ready", name, d->object_name.c_str());
    // The one line a launcher waits for: the objects were exported before
    // the name was requested, so everything answers from now on.
    std::fputs("ready\n", stdout);
    std::fflush(stdout);
}

void OnNameLost(GDBusConnection *connection, const gchar *name, gpointer data)
{
    auto *d = static_cast<Daemon *>(data);
    if (!d->acquired) {
        if (connection == nullptr || g_dbus_connection_is_closed(connection))
            std::fprintf(stderr, "sso-simulator: lost the system bus before owning %s\n", name);
        else
            std::fprintf(stderr,
                         "sso-simulator: the bus name %s is already owned (another SSO service "
                         "or simulator is running on this bus)\n",
                         name);
        SIM_LOGE("cannot own %s", name);
    } else {
        SIM_LOGE("lost %s; exiting", name);
    }
    d->Quit(1);
}

void OnClosed(GDBusConnection *, gboolean, GError *error, gpointer data)
{
    SIM_LOGE("the system bus connection closed: %s", error ? error->message : "by us");
    static_cast<Daemon *>(data)->Quit(1);
}

} // namespace

std::string OwnObjectName()
{
    const char *app = std::getenv("SSO_PLATFORM_APP_ID");
    return "obj" + std::to_string(getpid()) + "_" + (app && *app ? app : kDefaultAppId);
}

int RunDaemon(const DaemonOptions &options)
{
    Daemon d;
    d.object_name = OwnObjectName();
    try {
        d.contract = std::make_unique<Contract>();
    } catch (const std::exception &e) {
        std::fprintf(stderr, "sso-simulator: %s\n", e.what());
        return 1;
    }

    GError *error = nullptr;
    d.connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (d.connection == nullptr) {
        ErrorPtr owned(error);
        std::fprintf(stderr, "sso-simulator: cannot connect to the system bus: %s\n",
                     owned->message);
        return 1;
    }
    // A vanished bus ends the daemon with a failure, not with a SIGTERM.
    g_dbus_connection_set_exit_on_close(d.connection, FALSE);
    d.loop = g_main_loop_new(nullptr, FALSE);
    const gulong closed_handler =
        g_signal_connect(d.connection, "closed", G_CALLBACK(OnClosed), &d);
    const guint term = g_unix_signal_add(SIGTERM, OnStopSignal, &d);
    const guint intr = g_unix_signal_add(SIGINT, OnStopSignal, &d);
    guint owner = 0;

    try {
        const Contract &contract = *d.contract;
        d.behaviours = std::make_unique<BehaviourTable>(
            [&contract](const std::string &m) { return contract.FindServerMethod(m) != nullptr; });
        // The store is consistent before anyone can ask: the signed-out state
        // (and the demo accounts) are published before the name is owned.
        d.accounts = std::make_unique<AccountService>(options.seed);
        d.accounts->Start();
        if (options.demo_accounts)
            d.accounts->AddDemoAccounts();
        d.families = std::make_unique<RequestFamilies>(*d.accounts, options.seed);
        d.payloads = std::make_unique<PayloadProvider>(d.accounts.get());
        d.timers = std::make_unique<Timers>();
        d.delivery = std::make_unique<Delivery>(d.connection, contract, d.object_name);
        d.service = std::make_unique<Service>(d.connection, contract, *d.behaviours, *d.families,
                                              *d.payloads, *d.delivery, *d.timers,
                                              !options.no_sender_check);
        d.control = std::make_unique<Control>(d.connection, *d.behaviours, *d.service, *d.delivery,
                                              *d.accounts, *d.families, d.object_name,
                                              [&d]() { d.Quit(0); });
        d.service->Register();
        d.control->Register();
        owner = g_bus_own_name_on_connection(d.connection, kServiceBusName,
                                             G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE, OnNameAcquired,
                                             OnNameLost, &d, nullptr);
        g_main_loop_run(d.loop);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "sso-simulator: %s\n", e.what());
        SIM_LOGE("start-up failed: %s", e.what());
        d.exit_code = 1;
    }

    // Orderly teardown: no timer fires, no reply is awaited, every reply
    // already queued (Quit's own) reaches the bus before we disconnect.
    if (owner != 0)
        g_bus_unown_name(owner);
    if (d.timers)
        d.timers->CancelAll();
    if (d.delivery)
        d.delivery->Shutdown();
    if (d.service)
        d.service->ReleaseHeld();
    d.control.reset();
    d.service.reset();
    d.delivery.reset();
    d.timers.reset();
    d.payloads.reset();
    d.families.reset();
    d.accounts.reset();
    g_source_remove(term);
    g_source_remove(intr);
    g_dbus_connection_flush_sync(d.connection, nullptr, nullptr);
    g_signal_handler_disconnect(d.connection, closed_handler);
    g_object_unref(d.connection);
    g_main_loop_unref(d.loop);
    SIM_LOGI("stopped (exit %d)", d.exit_code);
    return d.exit_code;
}

} // namespace ssosim
