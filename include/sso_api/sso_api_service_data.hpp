// Synchronous reads of raw account data from the SSO service, for platform
// components written in C++. Applications use the C API of sso_api.h.
#ifndef SSO_API_SSO_API_SERVICE_DATA_HPP
#define SSO_API_SSO_API_SERVICE_DATA_HPP

#include <sso_api/sso_api.h>

#include <string>

/**
 * @brief Fetches the public account document from the SSO service.
 *
 * Blocks the calling thread for up to 5000 ms (plus the one-time link
 * set-up). @p out is emptied first.
 * @return true with @p out holding the document; false when the call failed
 *         or the service sent no text.
 */
SSO_API bool sso_private_get_public_account_data(std::string &out);

/**
 * @brief Fetches one value of an application's data for the signed-in account
 *        from the SSO service.
 *
 * Blocks for up to 5000 ms. @p out is emptied first. When any of the three
 * inputs is empty the answer is true with an empty @p out and the service is
 * not asked.
 */
SSO_API bool sso_private_get_extracted_application_data(const std::string &packageId,
                                                        const std::string &appId,
                                                        const std::string &key, std::string &out);

#endif
