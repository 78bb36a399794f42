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
    {errc::out_of_memory, "out_of_memory", "a text could not be allocated"},
    {errc::failed, "failed", "the call failed"},
    {errc::launch_failed, "launch_failed", "the account UI could not be launched"},
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

const char *service_result_name(int) noexcept
{
    // The C library names no result codes of the service yet.
    return nullptr;
}

Error::Error(std::error_code ec) : std::system_error(ec) {}

namespace detail {

std::error_code failure_after(int rc) noexcept
{
    // The return codes the C functions document besides -1; -1 itself says
    // only that the call failed.
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
