// Small owners for GLib objects, so early returns and exceptions never leak
// a reference.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

namespace ssosim {

struct VariantUnref {
    void operator()(GVariant *v) const { g_variant_unref(v); }
};
// Owns one reference (floating references are sunk on adoption).
using VariantPtr = std::unique_ptr<GVariant, VariantUnref>;
inline VariantPtr AdoptVariant(GVariant *v)
{
    return VariantPtr(v ? g_variant_ref_sink(v) : nullptr);
}

struct ObjectUnref {
    void operator()(gpointer p) const { g_object_unref(p); }
};
template <typename T> using ObjectPtr = std::unique_ptr<T, ObjectUnref>;

struct ErrorFree {
    void operator()(GError *e) const { g_error_free(e); }
};
using ErrorPtr = std::unique_ptr<GError, ErrorFree>;

struct GFree {
    void operator()(gpointer p) const { g_free(p); }
};
using CharPtr = std::unique_ptr<gchar, GFree>;

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

} // namespace ssosim
