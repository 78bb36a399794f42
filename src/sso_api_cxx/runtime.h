// The process-wide state of the C++ API: the table of live requests, their
// deadlines and the thread that enforces them, the account page waiting for
// the view to close, and what is done at unload.
#pragma once

#include <sso_api/sso_api.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>

namespace sso::detail {

class Runtime {
public:
    // Never destroyed: the library's threads may still call back while the
    // process exits, and must then find a table (an empty one).
    static Runtime &Get();

    Runtime() = default;
    Runtime(const Runtime &) = delete;
    Runtime &operator=(const Runtime &) = delete;

    std::error_code Enlist(const std::shared_ptr<PendingBase> &request,
                           std::chrono::milliseconds timeout) noexcept;
    // Takes the request out; with a shape, only a request of that shape
    // (a result of another shape is not its result).
    std::shared_ptr<PendingBase> Withdraw(std::uint64_t id,
                                          std::optional<Shape> shape = std::nullopt) noexcept;
    // The account page that waits for the view to close, taken out.
    std::shared_ptr<PendingBase> ClaimAccountPage() noexcept;
    bool closing() const noexcept;
    std::size_t pending() const noexcept;
    // At unload: nothing new is accepted, the deadline thread ends, what is
    // pending completes without calling the application.
    void Shutdown() noexcept;

private:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        std::shared_ptr<PendingBase> request;
        std::optional<Clock::time_point> deadline;
    };

    std::shared_ptr<PendingBase> WithdrawLocked(std::uint64_t id) noexcept;
    // Runs on the deadline thread.
    void EnforceDeadlines() noexcept;

    mutable std::mutex mutex_;
    std::condition_variable wake_;                                    // the deadline thread's
    std::unordered_map<std::uint64_t, Entry> live_;                   // guarded by mutex_
    std::set<std::pair<Clock::time_point, std::uint64_t>> deadlines_; // guarded by mutex_
    // When the deadline thread wakes up next by itself: a new deadline
    // wakes it only when it is earlier. Guarded by mutex_.
    Clock::time_point wake_at_ = Clock::time_point::max();
    std::uint64_t next_id_ = 1;       // guarded by mutex_
    std::uint64_t account_page_ = 0;  // guarded by mutex_
    bool closing_ = false;            // guarded by mutex_
    std::atomic<bool> closed_{false}; // closing_, for readers without the lock
    std::thread deadline_thread_;     // guarded by mutex_
};

// The id a request travels with as the C callback's user data.
inline void *AsUserData(std::uint64_t id) noexcept
{
    return reinterpret_cast<void *>(static_cast<std::uintptr_t>(id));
}
inline std::uint64_t IdOf(void *user_data) noexcept
{
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(user_data));
}

// Hands an exception that escaped an application callback to the handler.
void ReportException(std::exception_ptr error) noexcept;

} // namespace sso::detail
