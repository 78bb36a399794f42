// The control object: scripting, journal and deliveries, signals, calls into
// clients, accounts and what is published about them, the issued tokens and
// the client and whitelist registrations, and Quit.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

#include "account_service.h"
#include "behaviour.h"
#include "delivery.h"
#include "families.h"
#include "service.h"

namespace ssosim {

class Control {
public:
    Control(GDBusConnection *connection, BehaviourTable &behaviours, Service &service,
            Delivery &delivery, AccountService &accounts, RequestFamilies &families,
            std::string own_object_name, std::function<void()> quit);
    ~Control();
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    // Exports the control object. Throws std::runtime_error.
    void Register();
    void Unregister();

private:
    static void OnMethodCall(GDBusConnection *connection, const gchar *sender,
                             const gchar *object_path, const gchar *interface_name,
                             const gchar *method_name, GVariant *parameters,
                             GDBusMethodInvocation *invocation, gpointer user_data);
    // Returns the reply, or nullptr when the call completes later.
    GVariant *Handle(const std::string &method, GVariant *params,
                     ObjectPtr<GDBusMethodInvocation> &invocation);
    // The account, issued-token and registration methods: false when method
    // is none of them, else *reply
    // is the reply (nullptr for an empty one).
    bool HandleAccounts(const std::string &method, GVariant *params, GVariant **reply);

    GDBusConnection *connection_;
    BehaviourTable &behaviours_;
    Service &service_;
    Delivery &delivery_;
    AccountService &accounts_;
    RequestFamilies &families_;
    std::string own_object_name_;
    std::function<void()> quit_;
    GDBusNodeInfo *node_ = nullptr;
    guint registration_ = 0;
};

} // namespace ssosim
