#include "payloads.h"

#include <glib.h>

#include <cstdio>
#include <map>

namespace ssosim {

namespace {

// The string at index i of a tuple, "" when there is none.
std::string StringChild(GVariant *tuple, gsize i)
{
    if (tuple == nullptr || !g_variant_is_of_type(tuple, G_VARIANT_TYPE_TUPLE) ||
        i >= g_variant_n_children(tuple))
        return "";
    VariantPtr child(g_variant_get_child_value(tuple, i));
    if (!g_variant_is_of_type(child.get(), G_VARIANT_TYPE_STRING))
        return "";
    return g_variant_get_string(child.get(), nullptr);
}

std::string JsonResponse(const std::string &method)
{
    return "{\"result\":\"ok\",\"method\":\"" + method + "\"}";
}

} // namespace

std::string PayloadProvider::RandomHex(std::size_t digits)
{
    static const char kHex[] = "0123456789abcdef";
    std::string s;
    s.reserve(digits);
    for (std::size_t i = 0; i < digits; ++i)
        s += kHex[g_random_int_range(0, 16)];
    return s;
}

std::string PayloadProvider::ResultString(const Request &request, const std::string &client_method,
                                          const std::string &arg_name)
{
    (void)request;
    if (arg_name == "access_token")
        return "AT-" + RandomHex(32);
    if (arg_name == "auth_code")
        return "AC-" + RandomHex(32);
    if (arg_name == "response_data" || arg_name == "response" || arg_name == "data")
        return JsonResponse(client_method);
    if (arg_name == "birthday" || arg_name == "birth_date")
        return "19900101";
    if (arg_name == "age")
        return "35";
    if (arg_name == "identify_url")
        return "https://account.example.test/identify";
    if (arg_name == "check_url")
        return "https://account.example.test/namecheck";
    if (arg_name == "family_group_data")
        return "{\"groupId\":\"group-1\",\"groupName\":\"Family\",\"members\":"
               "[{\"userId\":\"user-1\",\"role\":\"owner\"}]}";
    if (arg_name == "group_users_data")
        return "{\"groupId\":\"group-1\",\"users\":[{\"userId\":\"user-1\",\"role\":\"owner\"},"
               "{\"userId\":\"user-2\",\"role\":\"member\"}]}";
    if (arg_name == "mapping_list")
        return "{\"mappings\":[{\"cpId\":\"cp-1\",\"cpUserId\":\"cp-user-1\"}]}";
    if (arg_name == "mapping_info")
        return "{\"cpId\":\"cp-1\",\"cpUserId\":\"cp-user-1\"}";

    static const std::map<std::string, std::string> kUserInfo = {
        {"user_id", "user-1"},  {"prefix_name", "Mx"}, {"first_name", "Alex"},
        {"last_name", "Doe"},   {"zip_code", "12345"}, {"mobile_num", "+15550100"},
        {"receive_email", "Y"}, {"auth", "Y"},
    };
    auto it = kUserInfo.find(arg_name);
    if (it != kUserInfo.end())
        return it->second;
    return "";
}

std::string PayloadProvider::DataAnswer(const Request &request)
{
    if (accounts_ == nullptr)
        return "";
    const std::string &method = request.method->name;
    if (method == "sso_get_public_account_data")
        return accounts_->PublicDocumentText();
    if (method == "sso_get_extracted_application_data") {
        // (obj, thread id, method name, package id, application id, key)
        const std::string package = StringChild(request.params.get(), 3);
        const std::string key = StringChild(request.params.get(), 5);
        return accounts_->ExtractedValue(package, key);
    }
    return "";
}

} // namespace ssosim
