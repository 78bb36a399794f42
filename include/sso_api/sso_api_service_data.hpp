/**
 * @file sso_api_service_data.hpp
 * @brief Synchronous reads of raw account data from the SSO service, for
 *        platform components written in C++.
 *
 * Applications use the C API of sso_api.h. These two functions ask the
 * service directly, one D-Bus call each, and wait for its answer; they take
 * no callback. They may be called from any thread and share the library's
 * D-Bus link, and with it the link set-up of a first request (see
 * @ref sso_lifecycle). They do not check the login state or the service's
 * liveness first.
 */
#ifndef SSO_API_SSO_API_SERVICE_DATA_HPP
#define SSO_API_SSO_API_SERVICE_DATA_HPP

#include <sso_api/sso_api.h>

#include <string>

/**
 * @ingroup sso_requests
 * @brief Fetches the public account document (every registered account)
 *        from the SSO service.
 *
 * Blocks the calling thread for at most 5000 ms, plus the link set-up of a
 * first request (up to 10 s).
 *
 * @param[out] out Emptied first; receives the document as the service sends
 *                 it.
 * @retval true  @p out holds the document.
 * @retval false The call failed (the service answered with an error or not
 *               within 5000 ms, is not running, the link is down or given
 *               up, or the library is being unloaded) or the answer carried
 *               no text; @p out is then empty.
 */
SSO_API bool sso_private_get_public_account_data(std::string &out);

/**
 * @ingroup sso_requests
 * @brief Fetches one value of an application's data for the signed-in
 *        account from the SSO service.
 *
 * Blocks the calling thread for at most 5000 ms, plus the link set-up of a
 * first request (up to 10 s). When any of the three inputs is empty the
 * service is not asked and the answer is true with an empty @p out: tell
 * that case by the empty text.
 *
 * @param packageId The package whose application data is read.
 * @param appId     The application within the package.
 * @param key       The key of the value.
 * @param[out] out  Emptied first; receives the value as the service sends it.
 * @retval true  @p out holds the value, or an input was empty (@p out
 *               empty).
 * @retval false The call failed or the answer carried no text; @p out is
 *               then empty.
 */
SSO_API bool sso_private_get_extracted_application_data(const std::string &packageId,
                                                        const std::string &appId,
                                                        const std::string &key, std::string &out);

#endif
