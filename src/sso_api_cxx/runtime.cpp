// Requests in flight: the table of live requests keyed by id, the deadline
// thread, the callbacks given to the C API, and the unload of this library.
#include "runtime.h"

#include <glib.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace sso::detail {

namespace {

constexpr const char *kDeadlineThreadName = "sso-deadlines";

// Completes a request of payload T with what a C callback brought; a text
// that cannot be copied completes it without an answer.
template <class T, class Make> void Answer(void *user_data, Shape shape, Make make) noexcept
{
    std::shared_ptr<PendingBase> request = Runtime::Get().Withdraw(IdOf(user_data), shape);
    if (request == nullptr)
        return; // late (deadline, cancel), given up, or not ours
    auto &typed = static_cast<Pending<T> &>(*request);
    try {
        typed.finish(make());
    } catch (...) {
        typed.fail(make_error_code(errc::out_of_memory));
    }
}

// The deadline thread never takes the application's signals (a handler or
// sigwait() of the application sees them on its own threads); faults stay
// deliverable.
template <class Body> std::thread StartQuietThread(Body body)
{
    sigset_t quiet;
    sigset_t saved;
    sigfillset(&quiet);
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        sigdelset(&quiet, fault);
    const bool restore = pthread_sigmask(SIG_BLOCK, &quiet, &saved) == 0;
    struct Restore {
        bool on;
        sigset_t *mask;
        ~Restore()
        {
            if (on)
                pthread_sigmask(SIG_SETMASK, mask, nullptr);
        }
    } restoreAtEnd{restore, &saved};
    return std::thread(std::move(body));
}

std::string Copy(const char *text)
{
    return text != nullptr ? std::string(text) : std::string();
}

// Destroyed when the process exits, before the statics of libsso_api (this
// library is initialised after it, so it is finalised before it).
struct UnloadGuard {
    ~UnloadGuard() { Runtime::Get().Shutdown(); }
} g_unload_guard;

} // namespace

// ---- the table

Runtime &Runtime::Get()
{
    static Runtime *runtime = new Runtime();
    return *runtime;
}

std::error_code Runtime::Enlist(const std::shared_ptr<PendingBase> &request,
                                std::chrono::milliseconds timeout) noexcept
{
    std::shared_ptr<PendingBase> superseded;
    try {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closing_)
            return make_error_code(errc::unloading);
        if (live_.size() >= kMaxPendingRequests)
            return make_error_code(errc::too_many_requests);
        const std::uint64_t id = next_id_;
        auto entry = live_.emplace(id, Entry{request, std::nullopt}).first;
        if (timeout.count() >= 0) {
            try {
                if (!deadline_thread_.joinable())
                    deadline_thread_ = StartQuietThread([this] { EnforceDeadlines(); });
                const Clock::time_point when = Clock::now() + timeout;
                deadlines_.emplace(when, id);
                entry->second.deadline = when;
                // Most deadlines are later than the one the thread waits
                // for: a request costs it no wake-up then.
                if (when < wake_at_) {
                    wake_at_ = when;
                    wake_.notify_one();
                }
            } catch (...) {
                live_.erase(entry);
                throw;
            }
        }
        request->id_ = id;
        ++next_id_;
        if (request->shape() == Shape::view_closed) {
            // One "view closed" notice for the process: the newest page has it.
            if (account_page_ != 0)
                superseded = WithdrawLocked(account_page_);
            account_page_ = id;
        }
    } catch (...) {
        // No memory for the entry, or no thread for the deadlines.
        return make_error_code(errc::out_of_memory);
    }
    if (superseded != nullptr)
        superseded->fail(make_error_code(errc::superseded));
    return {};
}

std::shared_ptr<PendingBase> Runtime::WithdrawLocked(std::uint64_t id) noexcept
{
    auto it = live_.find(id);
    if (it == live_.end())
        return nullptr;
    std::shared_ptr<PendingBase> request = std::move(it->second.request);
    if (it->second.deadline.has_value())
        deadlines_.erase({*it->second.deadline, id});
    live_.erase(it);
    if (account_page_ == id)
        account_page_ = 0;
    return request;
}

std::shared_ptr<PendingBase> Runtime::Withdraw(std::uint64_t id,
                                               std::optional<Shape> shape) noexcept
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (shape.has_value()) {
        auto it = live_.find(id);
        if (it == live_.end() || it->second.request->shape() != *shape)
            return nullptr;
    }
    return WithdrawLocked(id);
}

std::shared_ptr<PendingBase> Runtime::ClaimAccountPage() noexcept
{
    std::lock_guard<std::mutex> lock(mutex_);
    return account_page_ != 0 ? WithdrawLocked(account_page_) : nullptr;
}

bool Runtime::closing() const noexcept
{
    return closed_.load(std::memory_order_acquire);
}

std::size_t Runtime::pending() const noexcept
{
    std::lock_guard<std::mutex> lock(mutex_);
    return live_.size();
}

// Runs on the deadline thread.
void Runtime::EnforceDeadlines() noexcept
{
    pthread_setname_np(pthread_self(), kDeadlineThreadName);
    std::unique_lock<std::mutex> lock(mutex_);
    while (!closing_) {
        if (deadlines_.empty()) {
            wake_at_ = Clock::time_point::max();
            wake_.wait(lock);
            continue;
        }
        const auto [when, id] = *deadlines_.begin();
        if (Clock::now() < when) {
            // A deadline that went meanwhile (its request completed) ends
            // this wait early, once: cheaper than a wake-up per request.
            wake_at_ = when;
            wake_.wait_until(lock, when);
            continue;
        }
        // This deadline goes whether or not its request is still there.
        deadlines_.erase(deadlines_.begin());
        std::shared_ptr<PendingBase> request = WithdrawLocked(id);
        lock.unlock();
        if (request != nullptr)
            request->fail(make_error_code(errc::deadline_exceeded));
        request.reset(); // the application's callable may go here, without the lock
        lock.lock();
    }
}

void Runtime::Shutdown() noexcept
{
    std::vector<std::shared_ptr<PendingBase>> left;
    std::thread deadline_thread;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closing_)
            return;
        closing_ = true;
        closed_.store(true, std::memory_order_release);
        try {
            left.reserve(live_.size());
            for (auto &entry : live_)
                left.push_back(std::move(entry.second.request));
        } catch (...) {
            // Without memory for the list the requests just stay pending.
        }
        live_.clear();
        deadlines_.clear();
        account_page_ = 0;
        deadline_thread = std::move(deadline_thread_);
    }
    wake_.notify_all();
    if (deadline_thread.joinable()) {
        // exit() called from a callback on the deadline thread itself.
        if (deadline_thread.get_id() == std::this_thread::get_id())
            deadline_thread.detach();
        else
            deadline_thread.join();
    }
    for (auto &request : left)
        request->unload();
}

// ---- what the header declares

PendingBase::~PendingBase() = default;

std::error_code enlist(const std::shared_ptr<PendingBase> &request,
                       std::chrono::milliseconds timeout) noexcept
{
    return Runtime::Get().Enlist(request, timeout);
}

std::shared_ptr<PendingBase> withdraw(std::uint64_t id) noexcept
{
    return Runtime::Get().Withdraw(id);
}

void *user_data_of(const PendingBase &request) noexcept
{
    return AsUserData(request.id());
}

// ---- the callbacks the C API calls: on "SSOProxyMonitor" for service
// results, on the main-loop thread for the account UI.

int on_text(void *user_data, int result, char *text) noexcept
{
    Answer<std::string>(user_data, Shape::text,
                        [&] { return Result<std::string>(result, Copy(text)); });
    return 0;
}

int on_bare(void *user_data, int result) noexcept
{
    Answer<Nothing>(user_data, Shape::bare, [&] { return Result<Nothing>(result, Nothing{}); });
    return 0;
}

int on_identity(void *user_data, int result, char *birthday, char *url) noexcept
{
    Answer<IdentityInfo>(user_data, Shape::identity, [&] {
        return Result<IdentityInfo>(result, IdentityInfo{Copy(birthday), Copy(url)});
    });
    return 0;
}

int on_name_check(void *user_data, bool success, char *birth_date, char *age,
                  char *check_url) noexcept
{
    // The C API passes a success flag, not the service's code.
    Answer<NameCheckInfo>(user_data, Shape::name_check, [&] {
        return Result<NameCheckInfo>(success ? 0 : -1,
                                     NameCheckInfo{Copy(birth_date), Copy(age), Copy(check_url)});
    });
    return 0;
}

int on_user_info(void *user_data, int result, sso_user_info info) noexcept
{
    Answer<UserInfo>(user_data, Shape::user_info, [&] {
        // The C record's fields are NUL-terminated within their size.
        auto field = [](const char *text, size_t size) {
            return std::string(text, strnlen(text, size));
        };
        return Result<UserInfo>(result,
                                UserInfo{field(info.user_id, sizeof info.user_id),
                                         field(info.prefix_name, sizeof info.prefix_name),
                                         field(info.first_name, sizeof info.first_name),
                                         field(info.last_name, sizeof info.last_name),
                                         field(info.birth_date, sizeof info.birth_date),
                                         field(info.zip_code, sizeof info.zip_code),
                                         field(info.mobile_num, sizeof info.mobile_num),
                                         field(info.receive_email, sizeof info.receive_email),
                                         field(info.auth, sizeof info.auth)});
    });
    return 0;
}

// The account view closed (or, for the web pages, was launched). The user
// data is that of whichever sso_show() installed the library's watch, so
// the page waiting is looked up in the slot instead.
int on_view_closed(void *, int result, char *) noexcept
{
    if (std::shared_ptr<PendingBase> page = Runtime::Get().ClaimAccountPage())
        static_cast<Pending<Nothing> &>(*page).finish(Result<Nothing>(result, Nothing{}));
    return 0;
}

// ---- gates

struct Gate::State {
    std::mutex mutex;
    std::condition_variable left;
    bool closed = false;                  // guarded by mutex
    std::vector<std::thread::id> runners; // guarded by mutex: one entry per call in progress
};

Gate::Gate() noexcept : state_(new (std::nothrow) State()) {}
Gate::~Gate() = default;

bool Gate::enter() noexcept
{
    if (state_ == nullptr)
        return false;
    std::lock_guard<std::mutex> lock(state_->mutex);
    if (state_->closed)
        return false;
    try {
        state_->runners.push_back(std::this_thread::get_id());
    } catch (...) {
        return false;
    }
    return true;
}

void Gate::leave() noexcept
{
    std::lock_guard<std::mutex> lock(state_->mutex);
    auto &runners = state_->runners;
    auto it = std::find(runners.begin(), runners.end(), std::this_thread::get_id());
    if (it != runners.end())
        runners.erase(it);
    if (state_->closed)
        state_->left.notify_all();
}

void Gate::close() noexcept
{
    if (state_ == nullptr)
        return;
    std::unique_lock<std::mutex> lock(state_->mutex);
    state_->closed = true;
    // Calls on this thread (the callback closing its own gate) are not
    // waited for: they are below us on the stack.
    const std::thread::id self = std::this_thread::get_id();
    state_->left.wait(lock, [&] {
        return std::all_of(state_->runners.begin(), state_->runners.end(),
                           [&](std::thread::id t) { return t == self; });
    });
}

void run_guarded(Gate &gate, const std::function<void()> &fn) noexcept
{
    // Nothing of the application is called once the process has begun to
    // unload this library: its own statics are gone by then.
    if (Runtime::Get().closing() || !gate.enter())
        return;
    try {
        fn();
    } catch (...) {
        ReportException(std::current_exception());
    }
    gate.leave();
}

// ---- exceptions that escape the application's callbacks

namespace {

std::mutex g_handler_mutex;
std::function<void(std::exception_ptr)> *g_handler = nullptr; // guarded by g_handler_mutex

} // namespace

void ReportException(std::exception_ptr error) noexcept
{
    std::function<void(std::exception_ptr)> handler;
    try {
        std::lock_guard<std::mutex> lock(g_handler_mutex);
        if (g_handler != nullptr)
            handler = *g_handler;
    } catch (...) {
    }
    try {
        if (handler) {
            handler(error);
            return;
        }
        std::rethrow_exception(error);
    } catch (const std::exception &e) {
        g_warning("sso: a callback of the application threw: %s", e.what());
    } catch (...) {
        g_warning("sso: a callback of the application threw");
    }
}

} // namespace sso::detail

namespace sso {

void set_callback_exception_handler(std::function<void(std::exception_ptr)> handler)
{
    auto *fresh =
        handler ? new std::function<void(std::exception_ptr)>(std::move(handler)) : nullptr;
    std::function<void(std::exception_ptr)> *old;
    {
        std::lock_guard<std::mutex> lock(detail::g_handler_mutex);
        old = std::exchange(detail::g_handler, fresh);
    }
    delete old;
}

// ---- Request

Request::~Request() = default;

std::uint64_t Request::id() const noexcept
{
    return request_ != nullptr ? request_->id() : 0;
}

bool Request::pending() const noexcept
{
    return request_ != nullptr && !request_->done();
}

bool Request::cancel() noexcept
{
    if (request_ == nullptr)
        return false;
    std::shared_ptr<detail::PendingBase> request = detail::withdraw(request_->id());
    if (request == nullptr)
        return false;
    request->fail(make_error_code(errc::cancelled));
    return true;
}

void Request::abandon() noexcept
{
    if (request_ == nullptr)
        return;
    if (std::shared_ptr<detail::PendingBase> request = detail::withdraw(request_->id()))
        request->drop();
    request_->close();
}

} // namespace sso
