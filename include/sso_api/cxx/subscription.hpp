/**
 * @file subscription.hpp
 * @brief Login, logout and account-view notifications as RAII
 *        subscriptions (sso::Subscription).
 *
 * Any number of subscriptions share one registration with the library
 * (sso_register_login_state_changed_cb() for the login state) and one watch
 * of the setting "memory/sso/view_status" for the account view. Each
 * notification reaches every subscription through that subscription's own
 * Delivery.
 *
 * Threads: the library notices a change on the thread that runs the GLib
 * main context which was the thread default when the first subscription of
 * its kind was made (the global default context when that thread pushed
 * none), and only while a main loop runs it. Make subscriptions on the
 * application's main-loop thread, as the C functions require. A
 * Subscription may be destroyed on any thread.
 */
#ifndef SSO_API_CXX_SUBSCRIPTION_HPP
#define SSO_API_CXX_SUBSCRIPTION_HPP

#include <sso_api/cxx/delivery.hpp>
#include <sso_api/cxx/result.hpp>

#include <functional>
#include <memory>
#include <string>

namespace sso {

/** @brief Whether a user is signed in. */
enum class LoginState {
    signed_out = 0, ///< Nobody is signed in.
    signed_in = 1,  ///< A user is signed in.
};

/** @brief One change of the login state. */
struct LoginEvent {
    LoginState state = LoginState::signed_out; ///< The new state.
    /// The login id of the account signed in; empty on sign-out (the C API
    /// tells it only to its single subscriber) or when the account data
    /// cannot be read.
    std::string login_id;
    /// The GUID of the account signed in, or, on sign-out, of the account
    /// that was signed in before.
    std::string guid;
    std::string icon_path; ///< Signed in: the account's icon path (may be empty).
};

/** @brief The state of the account view ("memory/sso/view_status"). */
enum class ViewState : int {
    closed = 0, ///< No account view is shown.
    shown = 1,  ///< The account UI shows a view; other values pass through as they are.
};

/// @cond INTERNAL
namespace detail {
class SubscriberBase;
} // namespace detail
/// @endcond

/**
 * @brief One subscription; unsubscribes when it goes.
 *
 * After reset() (or the destructor) has returned, the handler is not running
 * on another thread and is never called again; called from inside the
 * handler itself, reset() returns at once and no later call is made.
 * Move-only.
 *
 * Thread safety: one Subscription is used by one thread at a time; it may be
 * reset or destroyed on any thread, also while its handler runs on another.
 * Do not reset it while holding a lock its handler takes.
 */
class SSO_CXX_API Subscription {
public:
    /** @brief Subscribed to nothing. */
    Subscription() noexcept;
    /// @cond INTERNAL
    explicit Subscription(std::shared_ptr<detail::SubscriberBase> subscriber) noexcept;
    /// @endcond
    /** @brief Moves. @param other Left subscribed to nothing. */
    Subscription(Subscription &&other) noexcept;
    /**
     * @brief Ends the own subscription and takes over that of @p other.
     * @param other Left subscribed to nothing.
     * @return This object.
     */
    Subscription &operator=(Subscription &&other) noexcept;
    Subscription(const Subscription &) = delete;
    Subscription &operator=(const Subscription &) = delete;
    /** @brief reset(). */
    ~Subscription();

    /** @return Whether the subscription is in force. */
    bool active() const noexcept;
    /** @brief Ends the subscription (see the class). */
    void reset() noexcept;

private:
    std::shared_ptr<detail::SubscriberBase> subscriber_;
};

/** @brief Receives login-state changes. */
using LoginHandler = std::function<void(const LoginEvent &)>;
/** @brief Receives account-view changes. */
using ViewHandler = std::function<void(ViewState)>;

/**
 * @brief Subscribes to every login-state change (every write of the login
 *        state, so the same state may come twice in a row).
 *
 * Call on the application's main-loop thread. The C functions
 * sso_unsubscribe_login_state_change() and sso_cb_reset() silence the
 * library's login watch for every registration, these included, until the
 * next subscription (of either API) installs it again.
 *
 * @param handler  Called for each change; must not be empty.
 * @param delivery Where @p handler runs (by default: the calling thread's
 *                 thread-default main context).
 * @return The subscription, or why none was made (the watch could not be
 *         installed, an empty handler, the library unloading).
 */
SSO_CXX_API Expected<Subscription> subscribe_login_state(LoginHandler handler,
                                                         Delivery delivery = {});
/**
 * @brief subscribe_login_state() for sign-ins only.
 * @param handler  Called for each change to LoginState::signed_in.
 * @param delivery Where @p handler runs.
 * @return The subscription, or why none was made.
 */
SSO_CXX_API Expected<Subscription> on_sign_in(LoginHandler handler, Delivery delivery = {});
/**
 * @brief subscribe_login_state() for sign-outs only.
 * @param handler  Called for each change to LoginState::signed_out.
 * @param delivery Where @p handler runs.
 * @return The subscription, or why none was made.
 */
SSO_CXX_API Expected<Subscription> on_sign_out(LoginHandler handler, Delivery delivery = {});
/**
 * @brief Subscribes to the account-view state (shown, closed), at every
 *        write of "memory/sso/view_status".
 *
 * Call on the application's main-loop thread.
 *
 * @param handler  Called with the new state; must not be empty.
 * @param delivery Where @p handler runs.
 * @return The subscription, or why none was made.
 */
SSO_CXX_API Expected<Subscription> subscribe_view_state(ViewHandler handler,
                                                        Delivery delivery = {});

} // namespace sso

#endif // SSO_API_CXX_SUBSCRIPTION_HPP
