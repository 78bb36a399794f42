/**
 * @file config.hpp
 * @brief Export marking of the C++ API's shared library, libsso_api_cxx.
 *
 * Included by every header of the C++ API; applications do not include it
 * themselves.
 */
#ifndef SSO_API_CXX_CONFIG_HPP
#define SSO_API_CXX_CONFIG_HPP

/**
 * @def SSO_CXX_API
 * @brief Marks the classes and functions libsso_api_cxx exports.
 *
 * With GCC and Clang it gives them default visibility; define
 * `SSO_API_NO_VISIBILITY` to leave the declarations unmarked.
 */
#if defined(__GNUC__) && !defined(SSO_API_NO_VISIBILITY)
#define SSO_CXX_API __attribute__((visibility("default")))
#else
#define SSO_CXX_API
#endif

#if __cplusplus < 201703L
#error "the C++ API of libsso_api needs C++17"
#endif

#endif // SSO_API_CXX_CONFIG_HPP
