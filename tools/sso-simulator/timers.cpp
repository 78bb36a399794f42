#include "timers.h"

#include <exception>
#include <vector>

#include "sim_log.h"

namespace ssosim {

struct Timers::Entry {
    Timers *owner;
    guint id;
    std::function<void()> fn;
};

void Timers::After(guint ms, std::function<void()> fn)
{
    auto *entry = new Entry{this, 0, std::move(fn)};
    entry->id = g_timeout_add_full(G_PRIORITY_DEFAULT, ms, &Timers::Fire, entry, &Timers::Destroy);
    ids_.insert(entry->id);
}

gboolean Timers::Fire(gpointer data)
{
    auto *entry = static_cast<Entry *>(data);
    try {
        entry->fn();
    } catch (const std::exception &e) {
        SIM_LOGE("delayed work failed: %s", e.what());
    } catch (...) {
        SIM_LOGE("delayed work failed");
    }
    return G_SOURCE_REMOVE;
}

void Timers::Destroy(gpointer data)
{
    auto *entry = static_cast<Entry *>(data);
    entry->owner->ids_.erase(entry->id);
    delete entry;
}

void Timers::CancelAll()
{
    // Destroy() edits ids_, so walk a copy.
    std::vector<guint> ids(ids_.begin(), ids_.end());
    for (guint id : ids)
        g_source_remove(id);
    ids_.clear();
}

} // namespace ssosim
