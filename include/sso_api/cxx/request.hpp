/**
 * @file request.hpp
 * @brief Requests in flight: the handles sso::Request, sso::ScopedRequest and
 *        sso::Future, and sso::Operation, which makes both forms of every
 *        request from one description.
 *
 * How a request travels: the call registers it in the process's table of
 * live requests under a fresh 64-bit id, then calls the C function with a
 * callback of this library and that id as the user data (never a pointer).
 * Whatever comes first, the result (looked up by id), the deadline, a cancel
 * or the unload of the library, takes the request out of the table and
 * completes it; whatever comes later finds nothing under the id and is
 * dropped, so each request completes exactly once and a late result can
 * never reach freed memory. The table holds at most kMaxPendingRequests
 * requests; beyond that a request fails at once with
 * errc::too_many_requests.
 */
#ifndef SSO_API_CXX_REQUEST_HPP
#define SSO_API_CXX_REQUEST_HPP

#include <sso_api/sso_api.h>

#include <sso_api/cxx/delivery.hpp>
#include <sso_api/cxx/result.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace sso {

/** @brief How many requests of the process may wait for their results at once. */
inline constexpr std::size_t kMaxPendingRequests = 4096;

/// @cond INTERNAL
namespace detail {

// The argument shapes of the C callbacks; a result is accepted only by a
// request of the shape its callback has.
enum class Shape : unsigned char { text, bare, identity, name_check, user_info, view_closed };

using TextCallback = int (*)(void *, int, char *);
using BareCallback = int (*)(void *, int);
using IdentityCallback = int (*)(void *, int, char *, char *);
using NameCheckCallback = int (*)(void *, bool, char *, char *, char *);
using UserInfoCallback = int (*)(void *, int, sso_user_info);

// The callbacks this library gives the C API: each looks its request up by
// the id in user_data. Defined in the library.
SSO_CXX_API int on_text(void *user_data, int result, char *text) noexcept;
SSO_CXX_API int on_bare(void *user_data, int result) noexcept;
SSO_CXX_API int on_identity(void *user_data, int result, char *birthday, char *url) noexcept;
SSO_CXX_API int on_name_check(void *user_data, bool success, char *birth_date, char *age,
                              char *check_url) noexcept;
SSO_CXX_API int on_user_info(void *user_data, int result, sso_user_info info) noexcept;
SSO_CXX_API int on_view_closed(void *user_data, int result, char *data) noexcept;

template <Shape S> struct ShapeTraits;
template <> struct ShapeTraits<Shape::text> {
    using Payload = std::string;
    static constexpr TextCallback callback = &on_text;
};
template <> struct ShapeTraits<Shape::bare> {
    using Payload = Nothing;
    static constexpr BareCallback callback = &on_bare;
};
template <> struct ShapeTraits<Shape::identity> {
    using Payload = IdentityInfo;
    static constexpr IdentityCallback callback = &on_identity;
};
template <> struct ShapeTraits<Shape::name_check> {
    using Payload = NameCheckInfo;
    static constexpr NameCheckCallback callback = &on_name_check;
};
template <> struct ShapeTraits<Shape::user_info> {
    using Payload = UserInfo;
    static constexpr UserInfoCallback callback = &on_user_info;
};
template <> struct ShapeTraits<Shape::view_closed> {
    using Payload = Nothing;
    static constexpr TextCallback callback = &on_view_closed;
};

// Lets the calls of one callback in and, once closed, waits for those in
// progress on other threads; a call from the closing thread itself (the
// callback closing its own gate) is not waited for.
class SSO_CXX_API Gate {
public:
    Gate() noexcept;
    ~Gate();
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;
    bool enter() noexcept; // false once closed
    void leave() noexcept;
    void close() noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// One request in the table. Completed exactly once by whoever withdraws it.
class SSO_CXX_API PendingBase : public std::enable_shared_from_this<PendingBase> {
public:
    explicit PendingBase(Shape shape) noexcept : shape_(shape) {}
    virtual ~PendingBase();
    PendingBase(const PendingBase &) = delete;
    PendingBase &operator=(const PendingBase &) = delete;

    Shape shape() const noexcept { return shape_; }
    std::uint64_t id() const noexcept { return id_; }
    bool done() const noexcept { return done_.load(std::memory_order_acquire); }

    // Completes without an answer.
    virtual void fail(std::error_code error) noexcept = 0;
    // Completes without calling anybody (the handle gave the request up).
    virtual void drop() noexcept { mark_done(); }
    // Completes as the library unloads: a callback is not called any more
    // (the application's own statics are gone by then), a Future gets
    // errc::unloading.
    virtual void unload() noexcept { drop(); }
    // Waits out a callback running on another thread and lets no later one
    // start.
    virtual void close() noexcept {}

protected:
    void mark_done() noexcept { done_.store(true, std::memory_order_release); }

private:
    friend class Runtime;
    const Shape shape_;
    std::uint64_t id_ = 0;
    std::atomic<bool> done_{false};
};

template <class T> class Pending : public PendingBase {
public:
    using PendingBase::PendingBase;
    virtual void finish(Result<T> result) noexcept = 0;
    void fail(std::error_code error) noexcept override { finish(Result<T>(error)); }
};

// Registers a request: gives it an id and, for a timeout of zero or more,
// a deadline. An error (too many requests, unloading) leaves it out.
SSO_CXX_API std::error_code enlist(const std::shared_ptr<PendingBase> &request,
                                   std::chrono::milliseconds timeout) noexcept;
// Takes a request out of the table; who gets it completes it.
SSO_CXX_API std::shared_ptr<PendingBase> withdraw(std::uint64_t id) noexcept;
// The user data the C function gets for a registered request.
SSO_CXX_API void *user_data_of(const PendingBase &request) noexcept;
// Why a C request function returned rc (non-zero): the one place that reads
// the library's failure causes.
SSO_CXX_API std::error_code failure_after(int rc) noexcept;
// Runs fn under gate, handing what escapes it to the exception handler.
SSO_CXX_API void run_guarded(Gate &gate, const std::function<void()> &fn) noexcept;

template <class T> class FuturePending final : public Pending<T> {
public:
    using Pending<T>::Pending;

    void finish(Result<T> result) noexcept override
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            result_.emplace(std::move(result));
        }
        this->mark_done();
        ready_.notify_all();
    }
    void unload() noexcept override { this->fail(make_error_code(errc::unloading)); }

    void wait() const
    {
        std::unique_lock<std::mutex> lock(mutex_);
        ready_.wait(lock, [this] { return result_.has_value(); });
    }
    template <class Clock, class Duration>
    bool wait_until(const std::chrono::time_point<Clock, Duration> &when) const
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return ready_.wait_until(lock, when, [this] { return result_.has_value(); });
    }
    Result<T> take()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        ready_.wait(lock, [this] { return result_.has_value(); });
        Result<T> out = std::move(*result_);
        result_.reset();
        taken_ = true;
        return out;
    }
    bool taken() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return taken_;
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable ready_;
    std::optional<Result<T>> result_; // guarded by mutex_
    bool taken_ = false;              // guarded by mutex_
};

template <class T, class F> class CallbackPending final : public Pending<T> {
public:
    CallbackPending(Shape shape, F fn, Delivery delivery)
        : Pending<T>(shape), fn_(std::move(fn)), delivery_(std::move(delivery))
    {
    }

    void finish(Result<T> result) noexcept override
    {
        {
            // The hand-over to a main context happens inside GLib, where a
            // thread sanitizer cannot see it: this lock orders it again.
            std::lock_guard<std::mutex> lock(mutex_);
            result_.emplace(std::move(result));
        }
        this->mark_done();
        try {
            std::shared_ptr<CallbackPending> self =
                std::static_pointer_cast<CallbackPending>(this->shared_from_this());
            delivery_.post([self] { self->invoke(); }, false);
        } catch (...) {
            // No memory for the hand-over: the outcome cannot be delivered.
        }
    }
    void close() noexcept override { gate_.close(); }

private:
    void invoke() noexcept
    {
        run_guarded(gate_, [this] {
            std::optional<Result<T>> result;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                result.swap(result_);
            }
            if (result.has_value())
                fn_(std::move(*result));
        });
    }

    F fn_;
    const Delivery delivery_;
    std::mutex mutex_;
    std::optional<Result<T>> result_; // guarded by mutex_; set once
    Gate gate_;
};

} // namespace detail
/// @endcond

/**
 * @brief The handle of a request made with a callback.
 *
 * Destroying it leaves the request running: the callback is called when the
 * request completes. Use ScopedRequest for a request that must not outlive
 * its owner. Move-only; an empty Request (default-constructed or moved from)
 * does nothing.
 *
 * Thread safety: one handle is used by one thread at a time; cancel() and
 * abandon() may race with the completion on other threads.
 */
class SSO_CXX_API Request {
public:
    /** @brief An empty handle. */
    Request() noexcept = default;
    /// @cond INTERNAL
    explicit Request(std::shared_ptr<detail::PendingBase> request) noexcept
        : request_(std::move(request))
    {
    }
    /// @endcond
    /** @brief Moves. @param other Left empty. */
    Request(Request &&other) noexcept = default;
    /** @brief Moves. @param other Left empty. @return This handle. */
    Request &operator=(Request &&other) noexcept = default;
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;
    /** @brief Leaves the request running. */
    ~Request();

    /** @return Whether this handle refers to a request. */
    bool valid() const noexcept { return request_ != nullptr; }
    /** @return The request's id in the table of live requests (0 when empty). */
    std::uint64_t id() const noexcept;
    /** @return Whether the request has not completed yet. */
    bool pending() const noexcept;
    /**
     * @brief Completes the request with errc::cancelled, delivered to the
     *        callback like any outcome (at once, on this thread, for
     *        Delivery::immediate()).
     *
     * A result that comes later is dropped. The C library is not told (it
     * has no cancel); the service may still act on the request.
     *
     * @return Whether this call completed the request (false when it had
     *         completed already).
     */
    bool cancel() noexcept;
    /**
     * @brief Gives the request up: its callback is not called any more.
     *
     * When the callback is running on another thread, waits until it has
     * returned; called from inside the callback itself, returns at once.
     * Afterwards the callback will never run, so what it refers to may go.
     */
    void abandon() noexcept;

private:
    std::shared_ptr<detail::PendingBase> request_;
};

/**
 * @brief A Request that abandons its request when it goes: after its
 *        destruction the callback is neither running (on another thread)
 *        nor called again.
 *
 * For callbacks that capture `this` or other state of their owner. Thread
 * safety: as Request.
 */
class ScopedRequest {
public:
    /** @brief Holds nothing. */
    ScopedRequest() noexcept = default;
    /**
     * @brief Takes over a request.
     * @param request The request (implicit, so a request call can
     *                initialise a ScopedRequest).
     */
    ScopedRequest(Request &&request) noexcept // NOLINT: implicit on purpose
        : request_(std::move(request))
    {
    }
    /** @brief Moves. @param other Left empty. */
    ScopedRequest(ScopedRequest &&other) noexcept = default;
    /**
     * @brief Abandons the own request and takes over that of @p other.
     * @param other Left empty.
     * @return This object.
     */
    ScopedRequest &operator=(ScopedRequest &&other) noexcept
    {
        if (this != &other) {
            request_.abandon();
            request_ = std::move(other.request_);
        }
        return *this;
    }
    ScopedRequest(const ScopedRequest &) = delete;
    ScopedRequest &operator=(const ScopedRequest &) = delete;
    /** @brief Abandons the request (see Request::abandon()). */
    ~ScopedRequest() { request_.abandon(); }

    /** @return The request. */
    Request &get() noexcept { return request_; }
    /** @return Whether the request has not completed yet. */
    bool pending() const noexcept { return request_.pending(); }
    /** @return The same as Request::cancel(). */
    bool cancel() noexcept { return request_.cancel(); }

private:
    Request request_;
};

/**
 * @brief The handle of a request made without a callback: its Result, once
 *        it comes.
 *
 * The result is stored when the request completes, on whichever thread
 * completes it; no main loop is needed to get it. Destroying a Future whose
 * result has not come gives the request up (it leaves the table at once).
 * Do not wait for an account UI flow on the main-loop thread that must run
 * for its answer to come, nor for a service request inside a result
 * callback: only the deadline ends such a wait.
 *
 * Thread safety: one Future is used by one thread at a time; the result may
 * be set concurrently from other threads.
 *
 * @tparam T The payload.
 */
template <class T> class Future {
public:
    /** @brief An empty handle: valid() is false. */
    Future() noexcept = default;
    /// @cond INTERNAL
    explicit Future(std::shared_ptr<detail::FuturePending<T>> state) noexcept
        : state_(std::move(state))
    {
    }
    /// @endcond
    /** @brief Moves. @param other Left empty. */
    Future(Future &&other) noexcept = default;
    /**
     * @brief Gives up the own request and takes over that of @p other.
     * @param other Left empty.
     * @return This object.
     */
    Future &operator=(Future &&other) noexcept
    {
        if (this != &other) {
            give_up();
            state_ = std::move(other.state_);
        }
        return *this;
    }
    Future(const Future &) = delete;
    Future &operator=(const Future &) = delete;
    /** @brief Gives the request up unless its result came. */
    ~Future() { give_up(); }

    /** @return Whether a result can still be taken with get(). */
    bool valid() const noexcept { return state_ != nullptr && !state_->taken(); }
    /** @return Whether the result is there; get() will not wait. */
    bool ready() const noexcept { return state_ != nullptr && state_->done(); }
    /** @return The request's id in the table of live requests (0 when empty). */
    std::uint64_t id() const noexcept { return state_ != nullptr ? state_->id() : 0; }
    /** @brief Waits for the result. Requires valid(). */
    void wait() const { checked().wait(); }
    /**
     * @brief Waits for the result at most @p timeout.
     * @param timeout How long.
     * @return std::future_status::ready or std::future_status::timeout.
     */
    template <class Rep, class Period>
    std::future_status wait_for(const std::chrono::duration<Rep, Period> &timeout) const
    {
        return wait_until(std::chrono::steady_clock::now() + timeout);
    }
    /**
     * @brief Waits for the result until @p when.
     * @param when The time point.
     * @return std::future_status::ready or std::future_status::timeout.
     */
    template <class Clock, class Duration>
    std::future_status wait_until(const std::chrono::time_point<Clock, Duration> &when) const
    {
        return checked().wait_until(when) ? std::future_status::ready : std::future_status::timeout;
    }
    /**
     * @brief Waits for the result and takes it; valid() is false afterwards.
     * @return The outcome.
     * @throws std::future_error (no_state) when not valid().
     */
    Result<T> get() { return checked().take(); }
    /**
     * @brief get().value(): the throwing style.
     * @return The payload of a successful answer.
     * @throws sso::Error when the outcome is not ok().
     */
    T value() { return get().value(); }
    /**
     * @brief Completes the request with errc::cancelled.
     * @return Whether this call completed it.
     */
    bool cancel() noexcept
    {
        if (state_ == nullptr)
            return false;
        if (std::shared_ptr<detail::PendingBase> request = detail::withdraw(state_->id())) {
            request->fail(make_error_code(errc::cancelled));
            return true;
        }
        return false;
    }

private:
    detail::FuturePending<T> &checked() const
    {
        if (state_ == nullptr || state_->taken())
            throw std::future_error(std::future_errc::no_state);
        return *state_;
    }
    void give_up() noexcept
    {
        if (state_ != nullptr && !state_->done()) {
            if (std::shared_ptr<detail::PendingBase> request = detail::withdraw(state_->id()))
                request->drop();
        }
        state_.reset();
    }

    std::shared_ptr<detail::FuturePending<T>> state_;
};

/**
 * @brief One request of the SSO service in both forms, made from its
 *        description @p Desc: called with a callable it returns a Request,
 *        called without one a Future.
 *
 * @code
 * // the callback form: the result comes to the lambda
 * sso::request_access_token({"org.example.app", secret, "profile"},
 *                           [](sso::Result<std::string> r) { ... }, 5s);
 * // the future form
 * auto token = sso::request_access_token({"org.example.app", secret}).get();
 * @endcode
 *
 * Every call blocks until the SSO service has accepted or refused the
 * request (at most 5000 ms, plus the link set-up of a first request, as the
 * C function says); the account UI flows return once the application is
 * launched. A refusal completes the request at once with its error.
 * Otherwise the result comes later: to the callback through the delivery of
 * the Options, or into the Future. The callable is invoked once, with a
 * Result of the request's payload, unless the request is abandoned first.
 *
 * Thread safety: the service requests may be made from any thread; the
 * account UI flows from the application's main-loop thread, as their C
 * functions say.
 *
 * @tparam Desc The description (one of sso::requests).
 */
template <class Desc> class Operation {
public:
    /** @brief The arguments of the request. */
    using Params = typename Desc::Params;
    /** @brief What a successful answer carries. */
    using Payload = typename detail::ShapeTraits<Desc::shape>::Payload;

    /**
     * @brief Makes the request; @p fn receives its Result.
     * @param params  The arguments.
     * @param fn      Called once with the Result (unless abandoned).
     * @param options Deadline and delivery.
     * @return The request's handle.
     */
    template <class F,
              class = std::enable_if_t<std::is_invocable_v<std::decay_t<F> &, Result<Payload>>>>
    Request operator()(const Params &params, F &&fn, const Options &options = {}) const
    {
        auto request = std::make_shared<detail::CallbackPending<Payload, std::decay_t<F>>>(
            Desc::shape, std::forward<F>(fn), options.delivery().resolved());
        start(params, request, options);
        return Request(std::move(request));
    }
    /**
     * @brief Makes the request; its Result comes into the Future.
     * @param params  The arguments.
     * @param options The deadline (the delivery does not apply).
     * @return The Future.
     */
    Future<Payload> operator()(const Params &params, const Options &options = {}) const
    {
        auto request = std::make_shared<detail::FuturePending<Payload>>(Desc::shape);
        start(params, request, options);
        return Future<Payload>(std::move(request));
    }
    /**
     * @brief The callback form of a request without arguments.
     * @param fn      Called once with the Result (unless abandoned).
     * @param options Deadline and delivery.
     * @return The request's handle.
     */
    template <class F, class D = Desc,
              class = std::enable_if_t<std::is_empty_v<typename D::Params> &&
                                       std::is_invocable_v<std::decay_t<F> &, Result<Payload>>>>
    Request operator()(F &&fn, const Options &options = {}) const
    {
        return (*this)(Params{}, std::forward<F>(fn), options);
    }
    /**
     * @brief The future form of a request without arguments.
     * @param options The deadline.
     * @return The Future.
     */
    template <class D = Desc, class = std::enable_if_t<std::is_empty_v<typename D::Params>>>
    Future<Payload> operator()(const Options &options = {}) const
    {
        return (*this)(Params{}, options);
    }

private:
    static void start(const Params &params,
                      const std::shared_ptr<detail::Pending<Payload>> &request,
                      const Options &options)
    {
        if (std::error_code error =
                detail::enlist(request, options.effective_timeout(Desc::user_paced))) {
            request->fail(error);
            return;
        }
        int rc = Desc::send(params, detail::ShapeTraits<Desc::shape>::callback,
                            detail::user_data_of(*request));
        if (rc != 0) {
            std::error_code error = detail::failure_after(rc);
            if (std::shared_ptr<detail::PendingBase> refused = detail::withdraw(request->id()))
                refused->fail(error);
        }
    }
};

} // namespace sso

#endif // SSO_API_CXX_REQUEST_HPP
