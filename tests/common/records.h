// What callbacks saw, one entry a call. Callbacks add on whatever thread the
// library (or a GLib loop) runs them; the test reads, counts and waits on its
// own thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include "sso_test_harness.h"

namespace ssotest {

template <typename T> class Records {
public:
    void Add(T entry)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        entries_.push_back(std::move(entry));
    }
    std::vector<T> All() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return entries_;
    }
    size_t Count() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return entries_.size();
    }
    // How many entries pred holds for.
    template <typename Pred> size_t CountIf(Pred pred) const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        size_t n = 0;
        for (const T &e : entries_)
            n += pred(e) ? 1 : 0;
        return n;
    }
    void Clear()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        entries_.clear();
    }
    // Whether n entries (or more) arrive before the time-out.
    bool WaitFor(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const
    {
        return WaitUntil([&] { return Count() >= n; }, timeout);
    }

private:
    mutable std::mutex mutex_;
    std::vector<T> entries_;
};

} // namespace ssotest
