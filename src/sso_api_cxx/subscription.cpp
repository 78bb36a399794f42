// Login and account-view notifications: one registration with the library
// (one settings watch for the view) per process, multiplexed over any
// number of Subscriptions.
#include "runtime.h"

#include <vconf.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace sso {

namespace detail {

class SubscriberBase : public std::enable_shared_from_this<SubscriberBase> {
public:
    virtual ~SubscriberBase() = default;
    // Leaves the hub and waits out a call in progress on another thread.
    virtual void Detach() noexcept = 0;
    bool active() const noexcept { return active_.load(std::memory_order_acquire); }

protected:
    std::atomic<bool> active_{true};
};

} // namespace detail

namespace {

constexpr const char *kViewStateKey = "memory/sso/view_status";

template <class Event> class Hub;

template <class Event> class Subscriber final : public detail::SubscriberBase {
public:
    using Handler = std::function<void(const Event &)>;
    using Filter = bool (*)(const Event &);

    Subscriber(Hub<Event> &hub, Handler handler, Filter filter, Delivery delivery)
        : hub_(hub), handler_(std::move(handler)), filter_(filter), delivery_(std::move(delivery))
    {
    }

    // On the thread that noticed the change.
    void Deliver(const Event &event) noexcept
    {
        if (filter_ != nullptr && !filter_(event))
            return;
        try {
            std::shared_ptr<Subscriber> self =
                std::static_pointer_cast<Subscriber>(shared_from_this());
            // On the main context's own thread a notification is already a
            // dispatch of it: called at once.
            delivery_.post([self, event] { self->Call(event); }, true);
        } catch (...) {
            detail::ReportException(std::current_exception());
        }
    }

    void Detach() noexcept override
    {
        hub_.Remove(this);
        active_.store(false, std::memory_order_release);
        gate_.close();
    }

private:
    void Call(const Event &event) noexcept
    {
        detail::run_guarded(gate_, [&] { handler_(event); });
    }

    Hub<Event> &hub_;
    const Handler handler_;
    const Filter filter_;
    const Delivery delivery_;
    detail::Gate gate_;
};

template <class Event> class Hub {
public:
    void Add(std::shared_ptr<Subscriber<Event>> subscriber)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        subscribers_.push_back(std::move(subscriber));
    }
    void Remove(const Subscriber<Event> *subscriber) noexcept
    {
        std::lock_guard<std::mutex> lock(mutex_);
        subscribers_.erase(std::remove_if(subscribers_.begin(), subscribers_.end(),
                                          [&](const auto &s) { return s.get() == subscriber; }),
                           subscribers_.end());
    }
    // On the thread that noticed the change; no lock is held while the
    // subscribers are called.
    void Publish(const Event &event) noexcept
    {
        std::vector<std::shared_ptr<Subscriber<Event>>> subscribers;
        try {
            std::lock_guard<std::mutex> lock(mutex_);
            subscribers = subscribers_;
        } catch (...) {
            return;
        }
        for (const auto &subscriber : subscribers)
            subscriber->Deliver(event);
    }
    // Whether the process's registration for this kind of change is made.
    // Guarded by mutex_.
    bool registered = false;
    std::mutex mutex_;

private:
    std::vector<std::shared_ptr<Subscriber<Event>>> subscribers_; // guarded by mutex_
};

// Never destroyed: notifications may come while the process exits.
Hub<LoginEvent> &LoginHub()
{
    static auto *hub = new Hub<LoginEvent>();
    return *hub;
}

Hub<ViewState> &ViewHub()
{
    static auto *hub = new Hub<ViewState>();
    return *hub;
}

// Runs on the thread of the main loop that installed the library's watch.
int OnLoginChanged(sso_login_state state, char *guid, void *icon_path) noexcept
{
    if (detail::Runtime::Get().closing())
        return 0;
    try {
        LoginEvent event;
        event.state = state == SSO_LOGEDIN ? LoginState::signed_in : LoginState::signed_out;
        event.guid = guid != nullptr ? guid : "";
        if (event.state == LoginState::signed_in) {
            if (icon_path != nullptr)
                event.icon_path = static_cast<const char *>(icon_path);
            // The registered callbacks are not told the login id; the
            // account data is cached and read once for every subscriber.
            sso_login_info_s info;
            std::memset(&info, 0, sizeof(info));
            if (sso_get_login_info(&info) == 0)
                event.login_id.assign(info.login_id, strnlen(info.login_id, sizeof(info.login_id)));
        }
        LoginHub().Publish(event);
    } catch (...) {
        // No memory for the event: this notification is lost.
    }
    return 0;
}

// Runs on the thread of the main loop whose context was the thread default
// when the watch was installed.
void OnViewChanged(keynode_t *key, void *) noexcept
{
    if (key == nullptr || detail::Runtime::Get().closing())
        return;
    const char *name = vconf_keynode_get_name(key);
    if (name == nullptr || std::strcmp(name, kViewStateKey) != 0)
        return;
    ViewHub().Publish(static_cast<ViewState>(vconf_keynode_get_int(key)));
}

bool SignedIn(const LoginEvent &event)
{
    return event.state == LoginState::signed_in;
}

bool SignedOut(const LoginEvent &event)
{
    return event.state == LoginState::signed_out;
}

Expected<Subscription> SubscribeLogin(LoginHandler handler, Delivery delivery,
                                      Subscriber<LoginEvent>::Filter filter)
{
    if (!handler)
        return errc::invalid_argument;
    if (detail::Runtime::Get().closing())
        return errc::unloading;
    Hub<LoginEvent> &hub = LoginHub();
    auto subscriber = std::make_shared<Subscriber<LoginEvent>>(hub, std::move(handler), filter,
                                                               delivery.resolved());
    // Made at every subscription: a registration that is there already
    // answers -1 but first installs the library's watch again if
    // sso_unsubscribe_login_state_change() or sso_cb_reset() removed it.
    const int rc = sso_register_login_state_changed_cb(&OnLoginChanged, nullptr);
    {
        std::lock_guard<std::mutex> lock(hub.mutex_);
        if (rc == 0)
            hub.registered = true;
        else if (!hub.registered)
            return detail::failure_after(rc);
    }
    hub.Add(subscriber);
    return Subscription(std::move(subscriber));
}

} // namespace

Subscription::Subscription() noexcept = default;

Subscription::Subscription(std::shared_ptr<detail::SubscriberBase> subscriber) noexcept
    : subscriber_(std::move(subscriber))
{
}

Subscription::Subscription(Subscription &&other) noexcept = default;

Subscription &Subscription::operator=(Subscription &&other) noexcept
{
    if (this != &other) {
        reset();
        subscriber_ = std::move(other.subscriber_);
    }
    return *this;
}

Subscription::~Subscription()
{
    reset();
}

bool Subscription::active() const noexcept
{
    return subscriber_ != nullptr && subscriber_->active();
}

void Subscription::reset() noexcept
{
    if (subscriber_ == nullptr)
        return;
    subscriber_->Detach();
    subscriber_.reset();
}

Expected<Subscription> subscribe_login_state(LoginHandler handler, Delivery delivery)
{
    return SubscribeLogin(std::move(handler), std::move(delivery), nullptr);
}

Expected<Subscription> on_sign_in(LoginHandler handler, Delivery delivery)
{
    return SubscribeLogin(std::move(handler), std::move(delivery), &SignedIn);
}

Expected<Subscription> on_sign_out(LoginHandler handler, Delivery delivery)
{
    return SubscribeLogin(std::move(handler), std::move(delivery), &SignedOut);
}

Expected<Subscription> subscribe_view_state(ViewHandler handler, Delivery delivery)
{
    if (!handler)
        return errc::invalid_argument;
    if (detail::Runtime::Get().closing())
        return errc::unloading;
    Hub<ViewState> &hub = ViewHub();
    auto subscriber = std::make_shared<Subscriber<ViewState>>(
        hub, [handler = std::move(handler)](const ViewState &state) { handler(state); }, nullptr,
        delivery.resolved());
    {
        std::lock_guard<std::mutex> lock(hub.mutex_);
        if (!hub.registered) {
            if (vconf_notify_key_changed(kViewStateKey, &OnViewChanged, nullptr) != 0)
                return errc::failed;
            hub.registered = true;
        }
    }
    hub.Add(subscriber);
    return Subscription(std::move(subscriber));
}

} // namespace sso
