// Owners by type for what GLib, GIO and the platform's C interfaces hand out,
// so early returns and exceptions never leak a reference or a text. Each
// deleter accepts only what it was made for; a null pointer is never passed
// to the free function. (libcrypto's owners are in SSOCrypto.h: it is loaded
// at run time, so they free through its function table.)
#pragma once

#include <gio/gio.h>

#include <cstdlib>
#include <memory>

namespace sso_glib {

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

struct StrvFree {
    void operator()(gchar **v) const { g_strfreev(v); }
};
using StrvPtr = std::unique_ptr<gchar *, StrvFree>;

struct MainContextUnref {
    void operator()(GMainContext *c) const { g_main_context_unref(c); }
};
using MainContextPtr = std::unique_ptr<GMainContext, MainContextUnref>;

struct MainLoopUnref {
    void operator()(GMainLoop *l) const { g_main_loop_unref(l); }
};
using MainLoopPtr = std::unique_ptr<GMainLoop, MainLoopUnref>;

struct SourceUnref {
    void operator()(GSource *s) const { g_source_unref(s); }
};
using SourcePtr = std::unique_ptr<GSource, SourceUnref>;

// What the platform's C interfaces (and strdup, malloc, calloc) hand out.
struct MallocFree {
    void operator()(void *p) const { std::free(p); }
};
template <typename T> using MallocPtr = std::unique_ptr<T, MallocFree>;

// Fills an out-parameter of type T** and takes ownership of what it got:
//   sso_glib::CharPtr text; int ret = f(sso_glib::Out(text));
// The owner takes the value only when the full expression ends: test it in
// the next statement, not in the same condition.
template <typename Owner> class OutParam {
public:
    using pointer = typename Owner::pointer;
    explicit OutParam(Owner &owner) : m_owner(owner) {}
    ~OutParam() { m_owner.reset(m_raw); }
    OutParam(const OutParam &) = delete;
    OutParam &operator=(const OutParam &) = delete;
    operator pointer *() { return &m_raw; }

private:
    Owner &m_owner;
    pointer m_raw = nullptr;
};
template <typename Owner> OutParam<Owner> Out(Owner &owner)
{
    return OutParam<Owner>(owner);
}

} // namespace sso_glib
