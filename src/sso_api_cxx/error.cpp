// The error categories, the reading of the C library's failures, and the
// freeing of the texts it hands out.
#include "runtime.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>
#include <string>

namespace sso {

namespace {

// The outcomes of this layer (the C library names its causes, 1 to 49):
// name and sentence, or nothing.
std::optional<std::pair<const char *, const char *>> OwnOutcome(int value)
{
    switch (static_cast<errc>(value)) {
    case errc::failed:
        return {{"failed", "the call failed"}};
    case errc::deadline_exceeded:
        return {{"deadline_exceeded", "the deadline passed before the result came"}};
    case errc::cancelled:
        return {{"cancelled", "the request was cancelled"}};
    case errc::superseded:
        return {{"superseded", "a newer account page replaced this one"}};
    case errc::too_many_requests:
        return {{"too_many_requests", "too many requests wait for their results"}};
    default:
        return std::nullopt;
    }
}

// A cause the C library names, or nothing.
std::optional<sso_error_e> CCause(int value)
{
    if (value <= SSO_ERROR_NONE || value >= static_cast<int>(errc::failed) ||
        std::strcmp(sso_error_name(static_cast<sso_error_e>(value)), "unknown") == 0)
        return std::nullopt;
    return static_cast<sso_error_e>(value);
}

class Category final : public std::error_category {
public:
    const char *name() const noexcept override { return "sso"; }
    std::string message(int value) const override
    {
        if (auto cause = CCause(value))
            return sso_strerror(*cause);
        auto own = OwnOutcome(value);
        return own ? own->second : "unknown error " + std::to_string(value);
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
    if (auto cause = CCause(static_cast<int>(e)))
        return sso_error_name(*cause);
    auto own = OwnOutcome(static_cast<int>(e));
    return own ? own->first : "unknown";
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
    if (CCause(static_cast<int>(cause)))
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
