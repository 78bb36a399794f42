/**
 * @file result.hpp
 * @brief The outcome of a request (sso::Result), of a local call
 *        (sso::Expected), and the records some requests answer with.
 */
#ifndef SSO_API_CXX_RESULT_HPP
#define SSO_API_CXX_RESULT_HPP

#include <sso_api/cxx/error.hpp>

#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <variant>

namespace sso {

/**
 * @brief What a request answered with nothing but its result code
 *        (generate_token_with_auth_code) or with the account view closing
 *        (the account pages).
 */
using Nothing = std::monostate;

/** @brief The user's profile (request_user_info). */
struct UserInfo {
    std::string user_id;       ///< User id.
    std::string prefix_name;   ///< Name prefix (title).
    std::string first_name;    ///< First name.
    std::string last_name;     ///< Last name.
    std::string birth_date;    ///< Birth date.
    std::string zip_code;      ///< Postal code.
    std::string mobile_num;    ///< Mobile phone number.
    std::string receive_email; ///< Whether the user receives e-mail, as the service writes it.
    std::string auth;          ///< Authorisation text of the profile.
};

/** @brief Identity-verification data of the current user (request_identity_info). */
struct IdentityInfo {
    std::string birthday;     ///< The user's birthday.
    std::string identify_url; ///< The identity-verification URL.
};

/** @brief Name-check data of the signed-in user (request_name_check_info). */
struct NameCheckInfo {
    std::string birth_date; ///< Birth date.
    std::string age;        ///< Age.
    std::string check_url;  ///< URL of the name check.
};

/**
 * @brief The outcome of a request: either the service's answer (its result
 *        code and the payload of the request's shape) or why none came.
 *
 * - ok(): the service answered with result code 0; value() is the payload.
 * - answered() but not ok(): the service answered with another code; code()
 *   has it, error() is that code in service_category(), and payload() still
 *   has whatever the service sent with it.
 * - not answered(): error() says why (sso::errc: refused by the library,
 *   deadline, cancel, unload...).
 *
 * The name-check request gets only a success flag from the library: its
 * code() is 0 on success and -1 otherwise. Account UI flows answer 0 or -1.
 *
 * Thread safety: a value.
 *
 * @tparam T The payload: std::string, Nothing, UserInfo, IdentityInfo or
 *           NameCheckInfo.
 */
template <class T> class Result {
public:
    /**
     * @brief No answer, for the reason @p error.
     * @param error Why; must hold an error.
     */
    explicit Result(std::error_code error) noexcept : error_(error) {}
    /**
     * @brief The service's answer.
     * @param code    The service's result code.
     * @param payload What came with it.
     */
    Result(int code, T payload) noexcept(std::is_nothrow_move_constructible_v<T>)
        : answered_(true), code_(code), payload_(std::move(payload))
    {
    }

    /** @return Whether the service answered with result code 0. */
    bool ok() const noexcept { return answered_ && code_ == 0; }
    /** @return ok(). */
    explicit operator bool() const noexcept { return ok(); }
    /** @return Whether the service answered at all. */
    bool answered() const noexcept { return answered_; }
    /** @return The service's result code when answered(), else -1. */
    int code() const noexcept { return answered_ ? code_ : -1; }
    /**
     * @return The name of code() where the library knows it (see
     *         service_result_name()), else nullptr (also when not answered()).
     */
    const char *code_name() const noexcept
    {
        return answered_ ? service_result_name(code_) : nullptr;
    }
    /**
     * @return Nothing when ok(); the result code in service_category() when
     *         answered with another code; else why no answer came.
     */
    std::error_code error() const noexcept
    {
        if (!answered_)
            return error_;
        return code_ == 0 ? std::error_code() : std::error_code(code_, service_category());
    }

    /**
     * @brief The payload of an answer, whatever its code.
     * @return The payload.
     * @throws sso::Error with error() when not answered().
     */
    const T &payload() const &
    {
        if (!answered_)
            throw Error(error());
        return payload_;
    }
    /**
     * @brief The payload of an answer, moved out.
     * @return The payload.
     * @throws sso::Error with error() when not answered().
     */
    T &&payload() &&
    {
        if (!answered_)
            throw Error(error());
        return std::move(payload_);
    }
    /**
     * @brief The payload of a successful answer (the throwing style).
     * @return The payload.
     * @throws sso::Error with error() unless ok().
     */
    const T &value() const &
    {
        if (!ok())
            throw Error(error());
        return payload_;
    }
    /**
     * @brief The payload of a successful answer, moved out.
     * @return The payload.
     * @throws sso::Error with error() unless ok().
     */
    T &&value() &&
    {
        if (!ok())
            throw Error(error());
        return std::move(payload_);
    }

private:
    bool answered_ = false;
    int code_ = -1;
    std::error_code error_;
    T payload_{};
};

/**
 * @brief The outcome of a local call or of a call that cannot be answered by
 *        the service: a value, or why there is none.
 *
 * Thread safety: a value.
 *
 * @tparam T The value.
 */
template <class T> class Expected {
public:
    /**
     * @brief A value.
     * @param value The value.
     */
    Expected(T value) noexcept(std::is_nothrow_move_constructible_v<T>) // NOLINT: implicit
        : has_value_(true), value_(std::move(value))
    {
    }
    /**
     * @brief No value, for the reason @p error.
     * @param error Why; must hold an error.
     */
    Expected(std::error_code error) noexcept : error_(error) {} // NOLINT: implicit
    /**
     * @brief No value, for the reason @p error.
     * @param error Why.
     */
    Expected(errc error) noexcept : error_(make_error_code(error)) {} // NOLINT: implicit

    /** @return Whether a value is held. */
    bool has_value() const noexcept { return has_value_; }
    /** @return has_value(). */
    explicit operator bool() const noexcept { return has_value_; }
    /** @return Why no value is held; nothing when one is. */
    std::error_code error() const noexcept { return error_; }
    /**
     * @brief The value (the throwing style).
     * @return The value.
     * @throws sso::Error with error() when none is held.
     */
    const T &value() const &
    {
        if (!has_value_)
            throw Error(error_);
        return value_;
    }
    /**
     * @brief The value, to modify.
     * @return The value.
     * @throws sso::Error with error() when none is held.
     */
    T &value() &
    {
        if (!has_value_)
            throw Error(error_);
        return value_;
    }
    /**
     * @brief The value, moved out.
     * @return The value.
     * @throws sso::Error with error() when none is held.
     */
    T &&value() &&
    {
        if (!has_value_)
            throw Error(error_);
        return std::move(value_);
    }
    /**
     * @brief The value, or @p fallback when none is held.
     * @param fallback What to give instead.
     * @return A copy of the value or the fallback.
     */
    template <class U> T value_or(U &&fallback) const &
    {
        return has_value_ ? value_ : static_cast<T>(std::forward<U>(fallback));
    }
    /** @return The value; has_value() must hold. */
    const T &operator*() const &noexcept { return value_; }
    /** @return The value; has_value() must hold. */
    T &operator*() &noexcept { return value_; }
    /** @return The value; has_value() must hold. */
    const T *operator->() const noexcept { return &value_; }
    /** @return The value; has_value() must hold. */
    T *operator->() noexcept { return &value_; }

private:
    bool has_value_ = false;
    std::error_code error_;
    T value_{};
};

} // namespace sso

#endif // SSO_API_CXX_RESULT_HPP
