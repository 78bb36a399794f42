/**
 * @file error.hpp
 * @brief Errors of the C++ API as values (std::error_code) and, for those
 *        who want them, as exceptions (sso::Error).
 *
 * Two error categories:
 * - sso::category(): why a call did not get an answer from the SSO service
 *   (the library refused it, the deadline passed, it was cancelled...), as
 *   sso::errc values;
 * - sso::service_category(): the SSO service answered with a result code
 *   other than 0; the code is the service's own.
 *
 * Thread safety: everything here may be used from any thread.
 */
#ifndef SSO_API_CXX_ERROR_HPP
#define SSO_API_CXX_ERROR_HPP

#include <sso_api/cxx/config.hpp>

#include <string>
#include <system_error>

namespace sso {

/**
 * @brief Why a call of the C++ API ended without an answer of the SSO
 *        service.
 *
 * The values are stable. They compare equal to the portable conditions
 * where one fits: `ec == std::errc::timed_out` holds for
 * errc::deadline_exceeded and errc::timed_out, `std::errc::operation_canceled`
 * for errc::cancelled and errc::superseded, `std::errc::invalid_argument` for
 * errc::invalid_argument, `std::errc::not_enough_memory` for
 * errc::out_of_memory, and `std::errc::resource_unavailable_try_again` for
 * errc::too_many_requests.
 */
enum class errc : int {
    // The causes the C library names for a failed call.
    invalid_argument = 1,    ///< An argument the library does not accept.
    unloading = 2,           ///< The library is being unloaded.
    no_bus = 3,              ///< The system bus cannot be reached.
    service_not_running = 4, ///< The SSO service is not running.
    service_refused = 5,     ///< The SSO service refused the request.
    timed_out = 6,           ///< The SSO service did not accept the request within 5000 ms.
    link_given_up = 7,       ///< sso_give_proxy() ended the link to the service.
    not_signed_in = 8,       ///< The call needs a signed-in user.
    not_allowed = 9,         ///< The calling application may not make this call.
    storage_unreadable = 10, ///< The account data could not be read.
    account_limit = 11, ///< The device holds six accounts and the one named is not one of them.
    client_name_taken = 12, ///< Another process holds this process's client bus name.
    bus_error = 13,         ///< The call on the bus failed otherwise.
    not_supported = 14,     ///< Retired, or not on this product.
    out_of_memory = 15,     ///< A text could not be allocated.
    launch_failed = 16,     ///< The account UI application could not be launched.
    not_found = 17,         ///< The value asked for is not stored.
    internal = 18,          ///< An unexpected failure inside the library.
    // The values 1 to 49 are the C library's causes (sso_error_e), by number.
    failed = 50, ///< The call failed and the library named no cause.
    // Outcomes of this C++ layer.
    deadline_exceeded = 100, ///< The deadline passed before the result came.
    cancelled = 101,         ///< The request was cancelled (Request::cancel(), Future::cancel()).
    superseded = 102,        ///< A newer account page replaced this one before the view closed.
    too_many_requests = 103, ///< Too many requests of the process wait for their results.
};

/**
 * @brief The category of sso::errc: name "sso", messages are sentences.
 * @return The one instance.
 */
SSO_CXX_API const std::error_category &category() noexcept;

/**
 * @brief The category of the SSO service's result codes: name
 *        "sso.service".
 *
 * The message names the code and, where the library knows it, its meaning.
 * @return The one instance.
 */
SSO_CXX_API const std::error_category &service_category() noexcept;

/**
 * @brief Makes a std::error_code of category() (found by argument-dependent
 *        lookup, so `std::error_code ec = sso::errc::cancelled;` works).
 * @param e The value.
 * @return The error code.
 */
SSO_CXX_API std::error_code make_error_code(errc e) noexcept;

/**
 * @brief The snake_case name of an errc value ("deadline_exceeded"), stable
 *        for logs and tests.
 * @param e The value.
 * @return A static text; "unknown" for a value that is not an enumerator.
 */
SSO_CXX_API const char *name(errc e) noexcept;

/**
 * @brief The name the library gives a result code of the SSO service.
 * @param code A result code delivered by the service.
 * @return A static text, or nullptr when the library knows no name for it.
 */
SSO_CXX_API const char *service_result_name(int code) noexcept;

/**
 * @brief The exception of the throwing style: a std::system_error that
 *        carries one of the two categories' codes.
 *
 * Thrown only by the accessors that say so (Result::value(),
 * Expected::value(), throw_if()); nothing else in the C++ API throws it.
 * Thread safety: an exception object, used by one thread at a time.
 */
class SSO_CXX_API Error : public std::system_error {
public:
    /**
     * @brief Wraps an error code.
     * @param ec The code; its message becomes what().
     */
    explicit Error(std::error_code ec);
};

/**
 * @brief Throws sso::Error when @p ec holds an error.
 * @param ec The outcome of a call.
 */
inline void throw_if(std::error_code ec)
{
    if (ec)
        throw Error(ec);
}

} // namespace sso

/// @cond INTERNAL
namespace std {
template <> struct is_error_code_enum<sso::errc> : true_type {
};
} // namespace std
/// @endcond

#endif // SSO_API_CXX_ERROR_HPP
