/**
 * @file delivery.hpp
 * @brief Where results and notifications reach the application (sso::Delivery)
 *        and how long a request may take (sso::Options).
 */
#ifndef SSO_API_CXX_DELIVERY_HPP
#define SSO_API_CXX_DELIVERY_HPP

#include <sso_api/cxx/config.hpp>

#include <chrono>
#include <functional>
#include <memory>

/// @cond INTERNAL
// GLib's main context, declared as glib.h declares it.
typedef struct _GMainContext GMainContext;
/// @endcond

namespace sso {

/**
 * @brief Where a callback of the C++ API runs.
 *
 * - thread_default() (what a default-constructed Delivery means): posted to
 *   the GLib main context that is the thread default of the thread that
 *   makes the request or the subscription, captured at that moment (the
 *   global default context when the thread pushed none). The callback runs
 *   when a main loop runs that context, and never inside the call that
 *   posted it.
 * - main_context(ctx): posted to @p ctx in the same way.
 * - immediate(): on the thread that completes the request: the library's
 *   "SSOProxyMonitor" thread for a service result, the main-loop thread for
 *   an account UI outcome or a notification, the C++ API's deadline thread
 *   for a deadline, the calling thread for Request::cancel(). Such a
 *   callback holds up the thread it runs on: keep it short.
 * - executor(fn): @p fn receives a task to run, and runs it wherever and
 *   whenever the application wants (a thread pool, an event queue).
 *
 * A notification to a main context is called at once when it arrives on the
 * thread that owns that context (it is already dispatching there); a request
 * result to a main context is always posted.
 *
 * Thread safety: a Delivery is a value; copies may be used on any thread.
 * Lifetime: it holds a reference on its main context.
 */
class SSO_CXX_API Delivery {
public:
    /** @brief Runs a task the C++ API hands over; must not throw. */
    using Executor = std::function<void(std::function<void()>)>;

    /** @brief The kinds of delivery. */
    enum class Kind {
        thread_default, ///< The caller's thread-default main context, captured at the call.
        immediate,      ///< On the thread that completes.
        main_context,   ///< Posted to a given main context.
        executor,       ///< Handed to an executor of the application.
    };

    /** @brief thread_default(). */
    Delivery() noexcept = default;
    /** @return A delivery to the caller's thread-default main context. */
    static Delivery thread_default() noexcept { return Delivery(); }
    /** @return A delivery on the completing thread. */
    static Delivery immediate() noexcept;
    /**
     * @brief A delivery to @p context.
     * @param context The main context (referenced while the delivery
     *                lives); nullptr means GLib's global default context.
     * @return The delivery.
     */
    static Delivery main_context(GMainContext *context);
    /**
     * @brief A delivery through an executor of the application.
     * @param executor Receives each task; must not be empty and must not
     *                 throw. A task it never runs is never called.
     * @return The delivery.
     */
    static Delivery executor(Executor executor);

    /** @brief Copies (and references the main context). @param other The source. */
    Delivery(const Delivery &other);
    /** @brief Copies. @param other The source. @return This delivery. */
    Delivery &operator=(const Delivery &other);
    /** @brief Moves. @param other The source, left thread_default(). */
    Delivery(Delivery &&other) noexcept;
    /** @brief Moves. @param other The source. @return This delivery. */
    Delivery &operator=(Delivery &&other) noexcept;
    /** @brief Releases the main context. */
    ~Delivery();

    /** @return The kind. */
    Kind kind() const noexcept { return kind_; }
    /** @return The main context of a main_context() delivery, else nullptr. */
    GMainContext *context() const noexcept { return context_; }
    /**
     * @brief Turns thread_default() into main_context() of the calling
     *        thread's thread-default context; other kinds are returned as
     *        they are.
     * @return The resolved delivery.
     */
    Delivery resolved() const;

    /// @cond INTERNAL
    // Runs task as this delivery says (the C++ API's own use). When
    // inline_if_owner, a main-context task is run at once on the thread that
    // owns the context.
    void post(std::function<void()> task, bool inline_if_owner) const noexcept;
    /// @endcond

private:
    void release() noexcept;

    Kind kind_ = Kind::thread_default;
    GMainContext *context_ = nullptr;
    std::shared_ptr<const Executor> executor_;
};

/** @brief The deadline of a service request unless the call gives one. */
inline constexpr std::chrono::milliseconds kDefaultTimeout{30000};

/**
 * @brief How one request runs: its deadline and its delivery.
 *
 * Converts implicitly from a duration (the time-out) and from a Delivery, so
 * a call may pass either alone: `sso::request_account_list(cb, 2s)`.
 *
 * The deadline counts from the call. When it passes before the result came,
 * the request completes with errc::deadline_exceeded and a late result is
 * dropped. Service requests default to kDefaultTimeout; account UI flows,
 * which wait for the user, default to no deadline.
 *
 * Thread safety: a value.
 */
class Options {
public:
    /** @brief The default deadline of the request, delivery thread_default(). */
    Options() = default;
    /**
     * @brief A deadline @p timeout after the call.
     * @param timeout The time-out; rounded up to whole milliseconds.
     */
    template <class Rep, class Period>
    Options(std::chrono::duration<Rep, Period> timeout) // NOLINT: implicit on purpose
    {
        this->timeout(timeout);
    }
    /**
     * @brief The default deadline with @p delivery.
     * @param delivery Where the callback runs.
     */
    Options(Delivery delivery) : delivery_(std::move(delivery)) {} // NOLINT: implicit on purpose

    /**
     * @brief Sets a deadline @p timeout after the call.
     * @param timeout The time-out; rounded up to whole milliseconds, at least 0.
     * @return This object.
     */
    template <class Rep, class Period> Options &timeout(std::chrono::duration<Rep, Period> timeout)
    {
        auto ms = std::chrono::ceil<std::chrono::milliseconds>(timeout);
        timeout_ = ms.count() < 0 ? std::chrono::milliseconds(0) : ms;
        mode_ = Mode::after;
        return *this;
    }
    /** @brief No deadline: the request waits for its result. @return This object. */
    Options &no_deadline() noexcept
    {
        mode_ = Mode::none;
        return *this;
    }
    /**
     * @brief Sets where the callback runs.
     * @param delivery The delivery.
     * @return This object.
     */
    Options &deliver(Delivery delivery)
    {
        delivery_ = std::move(delivery);
        return *this;
    }

    /** @return The delivery. */
    const Delivery &delivery() const noexcept { return delivery_; }
    /**
     * @brief The time-out that applies.
     * @param user_paced Whether the request waits for the user (an account
     *                   UI flow), which has no default deadline.
     * @return The time-out, or a negative duration for none.
     */
    std::chrono::milliseconds effective_timeout(bool user_paced) const noexcept
    {
        if (mode_ == Mode::after)
            return timeout_;
        if (mode_ == Mode::none || user_paced)
            return std::chrono::milliseconds(-1);
        return kDefaultTimeout;
    }

private:
    enum class Mode { standard, none, after };
    Mode mode_ = Mode::standard;
    std::chrono::milliseconds timeout_{0};
    Delivery delivery_;
};

/**
 * @brief Sets what is done with an exception that a callback of the
 *        application lets escape.
 *
 * The C++ API catches every such exception (it must not unwind through the
 * library's or GLib's C frames) and hands it to @p handler, on the thread
 * where the callback ran. Without a handler (the default, or after passing
 * an empty one) a warning is logged through GLib and the exception is
 * dropped. Any thread.
 *
 * @param handler Called with the exception; must not throw.
 */
SSO_CXX_API void set_callback_exception_handler(std::function<void(std::exception_ptr)> handler);

} // namespace sso

#endif // SSO_API_CXX_DELIVERY_HPP
