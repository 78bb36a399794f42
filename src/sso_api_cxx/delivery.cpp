// Delivery: running a callback where the application wants it.
#include "runtime.h"

#include <glib.h>

namespace sso {

namespace {

// A task on its way to a main context. GLib hands it over under locks of its
// own, which a thread sanitizer does not see; this lock orders the hand-over
// where it can.
std::mutex g_handover;

struct Box {
    std::function<void()> task; // guarded by g_handover
};

gboolean RunBox(gpointer data)
{
    std::function<void()> task;
    {
        std::lock_guard<std::mutex> lock(g_handover);
        task = std::move(static_cast<Box *>(data)->task);
    }
    if (task)
        task(); // the tasks catch what the application throws
    return G_SOURCE_REMOVE;
}

void FreeBox(gpointer data)
{
    std::lock_guard<std::mutex> lock(g_handover);
    delete static_cast<Box *>(data);
}

void PostToContext(GMainContext *context, std::function<void()> task) noexcept
{
    Box *box = nullptr;
    try {
        std::lock_guard<std::mutex> lock(g_handover);
        box = new Box{std::move(task)};
    } catch (...) {
        return; // no memory: the task is dropped
    }
    GSource *source = g_idle_source_new();
    // Not the idle priority: a busy application must not starve its results.
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, RunBox, box, FreeBox);
    g_source_set_name(source, "sso delivery");
    g_source_attach(source, context);
    g_source_unref(source);
}

} // namespace

Delivery Delivery::immediate() noexcept
{
    Delivery d;
    d.kind_ = Kind::immediate;
    return d;
}

Delivery Delivery::main_context(GMainContext *context)
{
    Delivery d;
    d.kind_ = Kind::main_context;
    d.context_ = g_main_context_ref(context != nullptr ? context : g_main_context_default());
    return d;
}

Delivery Delivery::executor(Executor executor)
{
    Delivery d;
    d.kind_ = Kind::executor;
    if (executor)
        d.executor_ = std::make_shared<const Executor>(std::move(executor));
    return d;
}

Delivery::Delivery(const Delivery &other)
    : kind_(other.kind_), context_(other.context_), executor_(other.executor_)
{
    if (context_ != nullptr)
        g_main_context_ref(context_);
}

Delivery &Delivery::operator=(const Delivery &other)
{
    if (this != &other) {
        Delivery copy(other);
        *this = std::move(copy);
    }
    return *this;
}

Delivery::Delivery(Delivery &&other) noexcept
    : kind_(other.kind_), context_(other.context_), executor_(std::move(other.executor_))
{
    other.kind_ = Kind::thread_default;
    other.context_ = nullptr;
}

Delivery &Delivery::operator=(Delivery &&other) noexcept
{
    if (this != &other) {
        release();
        kind_ = other.kind_;
        context_ = other.context_;
        executor_ = std::move(other.executor_);
        other.kind_ = Kind::thread_default;
        other.context_ = nullptr;
    }
    return *this;
}

Delivery::~Delivery()
{
    release();
}

void Delivery::release() noexcept
{
    if (context_ != nullptr)
        g_main_context_unref(context_);
    context_ = nullptr;
}

Delivery Delivery::resolved() const
{
    if (kind_ != Kind::thread_default)
        return *this;
    GMainContext *context = g_main_context_ref_thread_default();
    Delivery d = main_context(context);
    g_main_context_unref(context);
    return d;
}

void Delivery::post(std::function<void()> task, bool inline_if_owner) const noexcept
{
    switch (kind_) {
    case Kind::immediate:
        task();
        return;
    case Kind::thread_default: {
        // Not resolved when it was made: the completing thread's default.
        GMainContext *context = g_main_context_ref_thread_default();
        if (inline_if_owner && g_main_context_is_owner(context))
            task();
        else
            PostToContext(context, std::move(task));
        g_main_context_unref(context);
        return;
    }
    case Kind::main_context:
        if (inline_if_owner && g_main_context_is_owner(context_))
            task();
        else
            PostToContext(context_, std::move(task));
        return;
    case Kind::executor:
        if (executor_ == nullptr)
            return;
        try {
            (*executor_)(std::move(task));
        } catch (...) {
            detail::ReportException(std::current_exception());
        }
        return;
    }
}

} // namespace sso
