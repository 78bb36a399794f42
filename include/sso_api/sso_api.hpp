/**
 * @file sso_api.hpp
 * @brief The C++17 API of libsso_api: requests with lambdas or futures,
 *        deadlines, delivery to a GLib main context, RAII subscriptions and
 *        texts, errors as values.
 *
 * Include it as `<sso_api/sso_api.hpp>` and link with libsso_api_cxx
 * (`pkg-config --cflags --libs sso_api_cxx`, or `sso_api::sso_api_cxx` in
 * CMake). The guide is on the @ref cxx_api "C++ API" page.
 *
 * @code
 * #include <sso_api/sso_api.hpp>
 * using namespace std::chrono_literals;
 *
 * // On the main-loop thread: a token whenever someone signs in, at most 5 s
 * // to wait for it, the result on this thread's main context.
 * sso::Subscription sub = sso::on_sign_in([](const sso::LoginEvent &e) {
 *     sso::request_access_token({"org.example.app", secret, "profile"},
 *                               [](sso::Result<std::string> r) {
 *                                   if (r) use(r.value());
 *                                   else report(r.error());
 *                               }, 5s);
 * }).value();
 * @endcode
 *
 * Lifetime: libsso_api_cxx stays loaded for the rest of the process once
 * loaded (and keeps libsso_api loaded), so the callbacks it has given the C
 * library always exist. At the end of the process it completes what is
 * still pending before libsso_api unloads: futures get errc::unloading,
 * callbacks are not called any more, its deadline thread is joined.
 */
#ifndef SSO_API_SSO_API_HPP
#define SSO_API_SSO_API_HPP

#include <sso_api/cxx/account.hpp>
#include <sso_api/cxx/delivery.hpp>
#include <sso_api/cxx/error.hpp>
#include <sso_api/cxx/request.hpp>
#include <sso_api/cxx/requests.hpp>
#include <sso_api/cxx/result.hpp>
#include <sso_api/cxx/subscription.hpp>
#include <sso_api/cxx/text.hpp>

/** @brief The C++ API of libsso_api. */
namespace sso {
}

#endif // SSO_API_SSO_API_HPP
