// Requests of the C++ API without the C library behind them: a description
// whose send() keeps the callback and user data the C function would have
// been given, so a test can play the C library and deliver (or not) from
// any thread, through the C++ API's real callbacks.
#pragma once

#include <sso_api/sso_api.hpp>

#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "records.h"

namespace cxxtest {

// One request the fake "C library" accepted.
template <class Callback> struct Sent {
    Callback callback = nullptr;
    void *user_data = nullptr;
};

template <class Callback> class FakeLibrary : public ssotest::Records<Sent<Callback>> {
public:
    void Accept(Callback callback, void *user_data) { this->Add({callback, user_data}); }
    Sent<Callback> Last() const { return this->All().back(); }
};

inline FakeLibrary<sso::detail::TextCallback> &TextLibrary()
{
    static FakeLibrary<sso::detail::TextCallback> library;
    return library;
}

// Returns rc without "sending" when it is not 0, as a C function that
// refuses.
struct FakeText : sso::detail::Kind<sso::detail::Shape::text> {
    struct Params {
        int rc = 0;
    };
    static int send(const Params &p, sso::detail::TextCallback cb, void *ud) noexcept
    {
        if (p.rc != 0)
            return p.rc;
        TextLibrary().Accept(cb, ud);
        return 0;
    }
};

// Calls back before it returns, as a launch of the account UI that fails at
// once does (the callback, then -1).
struct FakeCallsBackThenFails : sso::detail::Kind<sso::detail::Shape::text, true> {
    struct Params {};
    static int send(const Params &, sso::detail::TextCallback cb, void *ud) noexcept
    {
        char empty[] = "";
        cb(ud, -1, empty);
        return -1;
    }
};

// An account page: its "view closed" notice goes to the newest page.
struct FakePage : sso::detail::Kind<sso::detail::Shape::view_closed, true> {
    struct Params {};
    static int send(const Params &, sso::detail::TextCallback cb, void *ud) noexcept
    {
        TextLibrary().Accept(cb, ud);
        return 0;
    }
};

inline constexpr sso::Operation<FakeText> fake_request{};
inline constexpr sso::Operation<FakeCallsBackThenFails> fake_calls_back_then_fails{};
inline constexpr sso::Operation<FakePage> fake_page{};

// Plays the C library delivering a text result.
inline int Deliver(const Sent<sso::detail::TextCallback> &sent, int result, std::string text)
{
    return sent.callback(sent.user_data, result, text.data());
}

} // namespace cxxtest
