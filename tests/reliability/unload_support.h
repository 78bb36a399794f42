// The built library loaded and unloaded as an application does it (dlopen,
// dlclose), for the unload tests. The including target defines
// SSO_API_LIBRARY, the path of the built libsso_api.so.
#pragma once

#include <dlfcn.h>
#include <gio/gio.h>

#include <string>

#include "reliability_support.h"

#ifndef SSO_API_LIBRARY
#error "SSO_API_LIBRARY must name the built libsso_api.so"
#endif

namespace reliability {

// What the process holds once GLib's own threads (its task pool) run, as
// the library's first use would start them: they are GLib's and stay, so an
// unload is compared with this.
inline Holdings HoldingsWithGlibThreads()
{
    GTask *task = g_task_new(nullptr, nullptr, nullptr, nullptr);
    g_task_run_in_thread_sync(
        task, [](GTask *t, gpointer, gpointer, GCancellable *) { g_task_return_boolean(t, TRUE); });
    g_object_unref(task);
    return Holdings::Now();
}

// The built library, loaded for one test; unloaded when the test forgot to.
class LoadedLibrary {
public:
    LoadedLibrary() = default;
    ~LoadedLibrary()
    {
        if (handle_ != nullptr)
            dlclose(handle_);
    }
    LoadedLibrary(const LoadedLibrary &) = delete;
    LoadedLibrary &operator=(const LoadedLibrary &) = delete;

    void Load()
    {
        handle_ = dlopen(SSO_API_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
    }

    template <typename Fn> void Find(const char *name, Fn &fn)
    {
        fn = reinterpret_cast<Fn>(dlsym(handle_, name));
        ASSERT_NE(fn, nullptr) << name;
    }

    // dlclose, and the library really went: its tear-down logged the end of
    // the client of appId.
    void Unload(const ssotest::LogCapture &log, const std::string &appId)
    {
        log.Clear();
        ASSERT_EQ(dlclose(handle_), 0);
        handle_ = nullptr;
        EXPECT_TRUE(log.Contains("m_appId[" + appId + "] Alive[0]"))
            << "the library was not unloaded";
    }

private:
    void *handle_ = nullptr;
};

} // namespace reliability
