#include "control.h"

#include <array>
#include <exception>
#include <memory>
#include <stdexcept>

#include "control_api.h"
#include "sim_log.h"

namespace ssosim {

namespace {

// Bad input from the controller; answered InvalidArgs.
struct InvalidArgs : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

// Parses a GVariant text tuple such as "('a', int64 1)" or "()".
VariantPtr ParseTuple(const std::string &text)
{
    GError *error = nullptr;
    GVariant *v = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error);
    if (v == nullptr) {
        ErrorPtr owned(error);
        throw InvalidArgs("cannot parse '" + text + "': " + owned->message);
    }
    VariantPtr owned = AdoptVariant(v);
    if (!g_variant_is_of_type(owned.get(), G_VARIANT_TYPE_TUPLE))
        throw InvalidArgs("'" + text + "' is no tuple (write \"()\" or \"('x', int64 1)\")");
    return owned;
}

GVariant *Records(const std::vector<std::array<std::string, 3>> &rows)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(sss)"));
    for (const auto &row : rows)
        g_variant_builder_add(&builder, "(sss)", row[0].c_str(), row[1].c_str(), row[2].c_str());
    return g_variant_new("(a(sss))", &builder);
}

} // namespace

Control::Control(GDBusConnection *connection, BehaviourTable &behaviours, Service &service,
                 Delivery &delivery, AccountService &accounts, RequestFamilies &families,
                 std::string own_object_name, std::function<void()> quit)
    : connection_(connection), behaviours_(behaviours), service_(service), delivery_(delivery),
      accounts_(accounts), families_(families), own_object_name_(std::move(own_object_name)),
      quit_(std::move(quit))
{
}

Control::~Control()
{
    Unregister();
    if (node_ != nullptr)
        g_dbus_node_info_unref(node_);
}

void Control::Register()
{
    GError *error = nullptr;
    if (node_ == nullptr) {
        node_ = g_dbus_node_info_new_for_xml(kControlXml, &error);
        if (node_ == nullptr) {
            ErrorPtr owned(error);
            throw std::runtime_error(std::string("bad control interface: ") + owned->message);
        }
    }
    static const GDBusInterfaceVTable kVTable = {&Control::OnMethodCall, nullptr, nullptr, {}};
    registration_ = ExportObject(connection_, kControlPath, node_->interfaces[0], &kVTable, this);
}

void Control::Unregister()
{
    UnexportObject(connection_, registration_);
}

void Control::OnMethodCall(GDBusConnection *, const gchar *, const gchar *, const gchar *,
                           const gchar *method_name, GVariant *parameters,
                           GDBusMethodInvocation *invocation, gpointer user_data)
{
    ObjectPtr<GDBusMethodInvocation> owned(invocation);
    try {
        GVariant *reply = static_cast<Control *>(user_data)->Handle(method_name, parameters, owned);
        if (owned)
            g_dbus_method_invocation_return_value(owned.release(), reply);
    } catch (const BehaviourError &e) {
        AnswerInvalidArgs(std::string("control ") + method_name, owned, e.what());
    } catch (const InvalidArgs &e) {
        AnswerInvalidArgs(std::string("control ") + method_name, owned, e.what());
    } catch (const AccountError &e) {
        // Messages name login ids and GUIDs the caller gave; the log gets
        // only the error name.
        SIM_LOGW("control %s refused: %s", method_name, e.error_name.c_str());
        if (owned)
            g_dbus_method_invocation_return_dbus_error(owned.release(), e.error_name.c_str(),
                                                       e.what());
    } catch (...) {
        AnswerHandlerFailure(std::string("control ") + method_name, owned);
    }
}

bool Control::HandleAccounts(const std::string &method, GVariant *params, GVariant **reply)
{
    *reply = nullptr;
    auto string_arg = [params](gsize i) {
        VariantPtr child(g_variant_get_child_value(params, i));
        return std::string(g_variant_get_string(child.get(), nullptr));
    };
    if (method == "AddAccount") {
        VariantPtr dict(g_variant_get_child_value(params, 0));
        const std::string guid = accounts_.Add(AccountFieldsFromVariant(dict.get()));
        *reply = g_variant_new("(s)", guid.c_str());
    } else if (method == "RemoveAccount") {
        accounts_.Remove(string_arg(0));
    } else if (method == "SignIn") {
        accounts_.SignIn(string_arg(0));
    } else if (method == "SignOut") {
        accounts_.SignOut();
    } else if (method == "GetAccounts") {
        *reply = g_variant_new("(s)", accounts_.AccountsJson().c_str());
    } else if (method == "GetState") {
        *reply = g_variant_new("(s)", accounts_.StateJson().c_str());
    } else if (method == "SetApplicationData") {
        accounts_.SetApplicationData(string_arg(0), string_arg(1), string_arg(2), string_arg(3));
    } else if (method == "RemoveApplicationData") {
        accounts_.RemoveApplicationData(string_arg(0));
    } else if (method == "WritePublicData") {
        accounts_.WritePublicData(string_arg(0));
    } else if (method == "Publish") {
        accounts_.Publish();
    } else if (method == "GetIssued") {
        *reply = g_variant_new("(s)", families_.IssuedJson().c_str());
    } else if (method == "ClearIssued") {
        families_.ClearIssued();
    } else if (method == "RegisterClient") {
        families_.RegisterClient(string_arg(0), string_arg(1));
    } else if (method == "RegisterWhitelist") {
        families_.RegisterWhitelist(string_arg(0), string_arg(1));
    } else {
        return false;
    }
    return true;
}

GVariant *Control::Handle(const std::string &method, GVariant *params,
                          ObjectPtr<GDBusMethodInvocation> &invocation)
{
    GVariant *reply = nullptr;
    if (HandleAccounts(method, params, &reply))
        return reply;
    if (method == "Configure") {
        const gchar *target = nullptr;
        GVariant *dict_raw = nullptr;
        g_variant_get(params, "(&s@a{sv})", &target, &dict_raw);
        VariantPtr dict(dict_raw);
        Behaviour b = BehaviourFromVariant(dict.get());
        behaviours_.Configure(target, b);
        SIM_LOGI("behaviour of %s: %s", target, b.Describe().c_str());
        return nullptr;
    }
    if (method == "ResetMethod") {
        const gchar *target = nullptr;
        g_variant_get(params, "(&s)", &target);
        behaviours_.Reset(target);
        SIM_LOGI("behaviour of %s reset", target);
        return nullptr;
    }
    if (method == "Reset") {
        behaviours_.ResetAll();
        service_.ClearJournal();
        service_.ClearTallies();
        delivery_.ClearRecords();
        SIM_LOGI("every behaviour reset, journal and deliveries cleared");
        return nullptr;
    }
    if (method == "GetJournal") {
        std::vector<std::array<std::string, 3>> rows;
        for (const auto &e : service_.journal())
            rows.push_back({e.sender, e.method, e.args});
        return Records(rows);
    }
    if (method == "ClearJournal") {
        service_.ClearJournal();
        return nullptr;
    }
    if (method == "GetDeliveries") {
        std::vector<std::array<std::string, 3>> rows;
        for (const auto &d : delivery_.records())
            rows.push_back({d.destination, d.method, d.args});
        return Records(rows);
    }
    if (method == "GetTallies") {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(stttt)"));
        for (const auto &[object_name, t] : service_.tallies())
            g_variant_builder_add(&builder, "(stttt)", object_name.c_str(),
                                  static_cast<guint64>(t.accepted), static_cast<guint64>(t.refused),
                                  static_cast<guint64>(t.delivered),
                                  static_cast<guint64>(t.dropped));
        return g_variant_new("(a(stttt))", &builder);
    }
    if (method == "ClearDeliveries") {
        delivery_.ClearRecords();
        return nullptr;
    }
    if (method == "EmitSignal") {
        const gchar *name = nullptr;
        const gchar *text = nullptr;
        g_variant_get(params, "(&s&s)", &name, &text);
        if (!g_dbus_is_member_name(name))
            throw InvalidArgs(std::string("'") + name + "' is not a valid signal name");
        VariantPtr args = ParseTuple(*text ? text : "()");
        GError *error = nullptr;
        if (!g_dbus_connection_emit_signal(connection_, nullptr, kSignalPath, kSignalInterface,
                                           name, args.get(), &error)) {
            ErrorPtr owned(error);
            throw std::runtime_error(std::string("cannot emit ") + name + ": " + owned->message);
        }
        SIM_LOGI("signal %s emitted", name);
        return nullptr;
    }
    if (method == "CallClient") {
        const gchar *bus_name = nullptr;
        const gchar *member = nullptr;
        const gchar *text = nullptr;
        g_variant_get(params, "(&s&s&s)", &bus_name, &member, &text);
        // Every failure, malformed input included, is the returned text: the
        // caller asserts on one string whatever went wrong.
        VariantPtr args;
        std::string refused;
        if (!g_dbus_is_name(bus_name) || g_dbus_is_unique_name(bus_name) != FALSE)
            refused = std::string("'") + bus_name + "' is not a valid well-known bus name";
        else if (!g_dbus_is_member_name(member))
            refused = std::string("'") + member + "' is not a valid method name";
        else
            try {
                args = ParseTuple(*text ? text : "()");
            } catch (const InvalidArgs &e) {
                refused = e.what();
            }
        if (!refused.empty()) {
            SIM_LOGW("call-client refused: %s", refused.c_str());
            return g_variant_new("(s)",
                                 ("org.freedesktop.DBus.Error.InvalidArgs: " + refused).c_str());
        }
        // The control call completes when the client has answered.
        auto pending = std::make_shared<ObjectPtr<GDBusMethodInvocation>>(std::move(invocation));
        delivery_.CallClient(bus_name, member, args.get(), [pending](const std::string &error) {
            if (*pending)
                g_dbus_method_invocation_return_value(pending->release(),
                                                      g_variant_new("(s)", error.c_str()));
        });
        return nullptr;
    }
    if (method == "GetObjectName")
        return g_variant_new("(s)", own_object_name_.c_str());
    if (method == "Quit") {
        SIM_LOGI("quit requested");
        quit_();
        return nullptr;
    }
    throw InvalidArgs("unknown control method " + method);
}

} // namespace ssosim
