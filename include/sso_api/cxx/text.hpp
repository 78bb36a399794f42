/**
 * @file text.hpp
 * @brief sso::Text, the owner of a text the C API hands out for the caller
 *        to free().
 */
#ifndef SSO_API_CXX_TEXT_HPP
#define SSO_API_CXX_TEXT_HPP

#include <sso_api/cxx/config.hpp>

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace sso {

/// @cond INTERNAL
namespace detail {
// Overwrites the text (it may be a token) and frees it.
SSO_CXX_API void free_text(char *text) noexcept;
} // namespace detail
/// @endcond

/**
 * @brief Owns one NUL-terminated text that the C API allocated for the
 *        caller (a `char **` out argument), and frees it on destruction.
 *
 * The bytes are overwritten before they are freed, since many of these texts
 * are tokens or identifiers. Move-only.
 *
 * Thread safety: one Text is used by one thread at a time; distinct Texts
 * are independent.
 */
class Text {
public:
    /** @brief Holds nothing (reads as an empty text). */
    Text() noexcept = default;
    /**
     * @brief Takes ownership of a text from the C API.
     * @param owned A calloc()/malloc() buffer, or nullptr.
     */
    explicit Text(char *owned) noexcept : text_(owned) {}
    /** @brief Overwrites and frees the text. */
    ~Text() { detail::free_text(text_); }
    /**
     * @brief Takes the text of @p other, which is left empty.
     * @param other The Text to move from.
     */
    Text(Text &&other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
    /**
     * @brief Frees the own text and takes that of @p other.
     * @param other The Text to move from.
     * @return This Text.
     */
    Text &operator=(Text &&other) noexcept
    {
        if (this != &other)
            detail::free_text(std::exchange(text_, std::exchange(other.text_, nullptr)));
        return *this;
    }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;

    /** @return The text, "" when none is held; valid while this Text lives. */
    const char *c_str() const noexcept { return text_ != nullptr ? text_ : ""; }
    /** @return A view of the text; valid while this Text lives. */
    std::string_view view() const noexcept { return c_str(); }
    /** @return A copy of the text. */
    std::string str() const { return std::string(c_str()); }
    /** @return The length in bytes. */
    std::size_t size() const noexcept { return text_ != nullptr ? std::strlen(text_) : 0; }
    /** @return Whether the text is empty (or none is held). */
    bool empty() const noexcept { return text_ == nullptr || text_[0] == '\0'; }
    /**
     * @brief Gives the buffer up; the caller then frees it with free().
     * @return The buffer, or nullptr.
     */
    char *release() noexcept { return std::exchange(text_, nullptr); }
    /** @return A view of the text, as view(). */
    operator std::string_view() const noexcept { return view(); }

private:
    char *text_ = nullptr;
};

} // namespace sso

#endif // SSO_API_CXX_TEXT_HPP
