// The simulator's GLib helpers: the library's owners (sso_glib_ptr.h) under
// the simulator's names, and the text forms the journal records.
#pragma once

#include <gio/gio.h>

#include "sso_glib_ptr.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace ssosim {

using sso_glib::AdoptVariant;
using sso_glib::CharPtr;
using sso_glib::ErrorPtr;
using sso_glib::ObjectPtr;
using sso_glib::VariantPtr;

// The GVariant text form with type annotations, as the journal records it.
inline std::string PrintVariant(GVariant *v)
{
    if (v == nullptr)
        return "()";
    CharPtr text(g_variant_print(v, TRUE));
    return text.get();
}

// A failed call as "<D-Bus error name>: <message>". Local errors (time-out,
// closed connection) get GDBus's encoded name so the text always starts with
// a name.
inline std::string DescribeError(const GError *error)
{
    if (error == nullptr)
        return "";
    std::string message = error->message ? error->message : "";
    CharPtr name(g_dbus_error_get_remote_error(error));
    if (name) {
        // GDBus prefixes remote messages with "GDBus.Error:<name>: ".
        const std::string prefix = std::string("GDBus.Error:") + name.get() + ": ";
        if (message.compare(0, prefix.size(), prefix) == 0)
            message.erase(0, prefix.size());
    } else {
        name.reset(g_dbus_error_encode_gerror(error));
    }
    return std::string(name.get()) + ": " + message;
}

// Exports one interface at path; throws std::runtime_error naming the path
// when GDBus refuses. Returns the registration id (never 0).
inline guint ExportObject(GDBusConnection *connection, const char *path, GDBusInterfaceInfo *info,
                          const GDBusInterfaceVTable *vtable, gpointer self)
{
    GError *error = nullptr;
    const guint id =
        g_dbus_connection_register_object(connection, path, info, vtable, self, nullptr, &error);
    if (id == 0) {
        ErrorPtr owned(error);
        throw std::runtime_error(std::string("cannot export ") + path + ": " + owned->message);
    }
    return id;
}

// Withdraws an export made by ExportObject, if any; registration becomes 0.
inline void UnexportObject(GDBusConnection *connection, guint &registration)
{
    if (registration != 0) {
        g_dbus_connection_unregister_object(connection, registration);
        registration = 0;
    }
}

// Calls visit(key, value) for each entry of an a{sv} dictionary, in order;
// each value is released after its call, also when visit throws.
template <typename Visit> void ForEachVardictEntry(GVariant *dict, Visit &&visit)
{
    GVariantIter iter;
    g_variant_iter_init(&iter, dict);
    const gchar *key = nullptr;
    GVariant *raw = nullptr;
    while (g_variant_iter_next(&iter, "{&sv}", &key, &raw)) {
        VariantPtr value(raw);
        visit(key, value.get());
    }
}

} // namespace ssosim
