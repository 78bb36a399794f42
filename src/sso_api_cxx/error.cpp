// The error categories, the reading of the C library's failures, and the
// freeing of the texts it hands out.
#include "runtime.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace sso {

namespace {

struct ErrcInfo {
    errc value;
    const char *name;
    const char *message;
};

constexpr ErrcInfo kErrc[] = {
    {errc::invalid_argument, "invalid_argument", "an argument was not accepted"},
    {errc::unloading, "unloading", "the library is being unloaded"},
    {errc::no_bus, "no_bus", "the system bus cannot be reached"},
    {errc::service_not_running, "service_not_running", "the SSO service is not running"},
    {errc::service_refused, "service_refused", "the SSO service refused the request"},
    {errc::timed_out, "timed_out", "the SSO service did not accept the request in time"},
    {errc::link_given_up, "link_given_up", "the link to the SSO service was given up"},
    {errc::not_signed_in, "not_signed_in", "nobody is signed in"},
    {errc::not_allowed, "not_allowed", "the application may not make this call"},
    {errc::storage_unreadable, "storage_unreadable", "the account data cannot be read"},
    {errc::account_limit, "account_limit", "the device holds six accounts already"},
    {errc::client_name_taken, "client_name_taken",
     "another process holds this process's client bus name"},
    {errc::bus_error, "bus_error", "the call on the bus failed"},
    {errc::not_supported, "not_supported", "not supported (retired, or not on this product)"},
    {errc::out_of_memory, "out_of_memory", "a text could not be allocated"},
    {errc::launch_failed, "launch_failed", "the account UI could not be launched"},
    {errc::not_found, "not_found", "the value asked for is not stored"},
    {errc::internal, "internal", "an unexpected failure inside the library"},
    {errc::failed, "failed", "the call failed"},
    {errc::deadline_exceeded, "deadline_exceeded", "the deadline passed before the result came"},
    {errc::cancelled, "cancelled", "the request was cancelled"},
    {errc::superseded, "superseded", "a newer account page replaced this one"},
    {errc::too_many_requests, "too_many_requests", "too many requests wait for their results"},
};

const ErrcInfo *Find(int value)
{
    for (const auto &info : kErrc)
        if (static_cast<int>(info.value) == value)
            return &info;
    return nullptr;
}

class Category final : public std::error_category {
public:
    const char *name() const noexcept override { return "sso"; }
    std::string message(int value) const override
    {
        const ErrcInfo *info = Find(value);
        return info != nullptr ? info->message : "unknown error " + std::to_string(value);
    }
    std::error_condition default_error_condition(int value) const noexcept override
    {
        switch (static_cast<errc>(value)) {
        case errc::deadline_exceeded:
        case errc::timed_out:
            return std::errc::timed_out;
        case errc::cancelled:
        case errc::superseded:
            return std::errc::operation_canceled;
        case errc::invalid_argument:
            return std::errc::invalid_argument;
        case errc::out_of_memory:
            return std::errc::not_enough_memory;
        case errc::too_many_requests:
            return std::errc::resource_unavailable_try_again;
        default:
            return std::error_condition(value, *this);
        }
    }
};

class ServiceCategory final : public std::error_category {
public:
    const char *name() const noexcept override { return "sso.service"; }
    std::string message(int value) const override
    {
        std::string text = "the SSO service answered " + std::to_string(value);
        if (const char *known = service_result_name(value))
            text += std::string(" (") + known + ")";
        return text;
    }
};

} // namespace

const std::error_category &category() noexcept
{
    static const Category instance;
    return instance;
}

const std::error_category &service_category() noexcept
{
    static const ServiceCategory instance;
    return instance;
}

std::error_code make_error_code(errc e) noexcept
{
    return std::error_code(static_cast<int>(e), category());
}

const char *name(errc e) noexcept
{
    const ErrcInfo *info = Find(static_cast<int>(e));
    return info != nullptr ? info->name : "unknown";
}

const char *service_result_name(int code) noexcept
{
    return sso_service_result_name(code);
}

Error::Error(std::error_code ec) : std::system_error(ec) {}

namespace detail {

std::error_code failure_after(int rc) noexcept
{
    // Read at once, on the thread of the failed call: the C library's own
    // cause, whose numbers errc shares. A refusal carries the service's
    // answer as a code of the service's category.
    const sso_error_e cause = sso_last_error();
    if (cause == SSO_ERROR_SERVICE_REFUSED && sso_last_service_answer() != 0)
        return std::error_code(sso_last_service_answer(), service_category());
    if (cause != SSO_ERROR_NONE && Find(static_cast<int>(cause)) != nullptr)
        return make_error_code(static_cast<errc>(cause));
    // No cause recorded: what the return value says.
    switch (rc) {
    case -100:
        return make_error_code(errc::account_limit);
    case -101:
        return make_error_code(errc::out_of_memory);
    case 1:
        return make_error_code(errc::launch_failed);
    default:
        return make_error_code(errc::failed);
    }
}

void free_text(char *text) noexcept
{
    if (text == nullptr)
        return;
    // Tokens and identifiers must not linger in freed memory.
    explicit_bzero(text, std::strlen(text));
    std::free(text);
}

} // namespace detail

} // namespace sso
