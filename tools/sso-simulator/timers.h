// Delayed work on the main loop. Every pending timer is owned here, so a
// shutdown cancels them all and frees what their closures hold (a kept
// method invocation, a request).
#pragma once

#include <glib.h>

#include <cstddef>
#include <functional>
#include <set>

namespace ssosim {

class Timers {
public:
    Timers() = default;
    ~Timers() { CancelAll(); }
    Timers(const Timers &) = delete;
    Timers &operator=(const Timers &) = delete;

    // Runs fn once, ms milliseconds from now, on the default main context.
    // An exception from fn is logged, never let through into GLib.
    void After(guint ms, std::function<void()> fn);
    void CancelAll();
    std::size_t pending() const { return ids_.size(); }

private:
    struct Entry;
    static gboolean Fire(gpointer data);
    static void Destroy(gpointer data);

    std::set<guint> ids_;
};

} // namespace ssosim
