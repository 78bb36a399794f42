// A GLib main loop on a thread of its own, shared by the tests.
#pragma once

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace ssotest {

// A thread that runs a fresh GMainContext pushed as its thread default, so
// whatever is set up through Run() (a settings subscription, a launch request
// with a reply) delivers on this thread, as an application's main loop does.
class LoopThread {
public:
    LoopThread()
    {
        std::promise<void> ready;
        std::future<void> started = ready.get_future();
        thread_ = std::thread([this, &ready] {
            GMainContext *ctx = g_main_context_new();
            g_main_context_push_thread_default(ctx);
            GMainLoop *loop = g_main_loop_new(ctx, FALSE);
            {
                std::lock_guard<std::mutex> lock(mutex_);
                ctx_ = ctx;
                loop_ = loop;
                id_ = std::this_thread::get_id();
            }
            ready.set_value();
            g_main_loop_run(loop);
            g_main_context_pop_thread_default(ctx);
            g_main_loop_unref(loop);
            g_main_context_unref(ctx);
        });
        started.wait();
    }

    virtual ~LoopThread() { Stop(); }
    LoopThread(const LoopThread &) = delete;
    LoopThread &operator=(const LoopThread &) = delete;

    std::thread::id id() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return id_;
    }

    // Runs fn on the loop thread and waits for it. Also a barrier: whatever
    // the loop had ready before has been dispatched when it returns.
    void Run(std::function<void()> fn)
    {
        auto task = std::make_shared<std::packaged_task<void()>>(std::move(fn));
        std::future<void> done = task->get_future();
        Post([task] { (*task)(); });
        if (done.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
            ADD_FAILURE() << "the loop thread did not run the task in time";
            std::abort();
        }
        done.get();
    }

    virtual void Stop()
    {
        if (!thread_.joinable())
            return;
        // Quit from inside the loop: a quit before the loop runs would be lost.
        Post([this] {
            std::lock_guard<std::mutex> lock(mutex_);
            g_main_loop_quit(loop_);
        });
        thread_.join();
    }

private:
    // Queued under our own mutex, so the handoff is visible to the thread
    // sanitizer; the idle source only wakes the loop.
    void Post(std::function<void()> fn)
    {
        GMainContext *ctx;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            tasks_.push_back(std::move(fn));
            ctx = ctx_;
        }
        GSource *idle = g_idle_source_new();
        g_source_set_callback(idle, &LoopThread::RunTasks, this, nullptr);
        g_source_attach(idle, ctx);
        g_source_unref(idle);
    }

    static gboolean RunTasks(gpointer self_ptr)
    {
        auto *self = static_cast<LoopThread *>(self_ptr);
        std::vector<std::function<void()>> tasks;
        {
            std::lock_guard<std::mutex> lock(self->mutex_);
            tasks.swap(self->tasks_);
        }
        for (auto &t : tasks)
            t();
        return G_SOURCE_REMOVE;
    }

    mutable std::mutex mutex_;
    GMainContext *ctx_ = nullptr;
    GMainLoop *loop_ = nullptr;
    std::thread::id id_;
    std::vector<std::function<void()>> tasks_;
    std::thread thread_;
};

} // namespace ssotest
