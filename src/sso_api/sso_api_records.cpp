#include "sso_api_records.h"

#include <cstdio>
#include <cstring>

namespace {

// Copies with a bound one byte short of the field: a text fills at most
// size - 2 characters.
template <size_t N> void CopyCut(char (&field)[N], const char *text)
{
    if (text != nullptr)
        snprintf(field, N - 1, "%s", text);
}

} // namespace

void SSOAPIRecords::SetNameCheckAuthInfo(sso_name_check_auth_info_s &info, const char *birthDate,
                                         const char *age, const char *checkUrl)
{
    memset(&info, 0, sizeof(info));
    CopyCut(info.birth_date, birthDate);
    CopyCut(info.age, age);
    CopyCut(info.check_url, checkUrl);
}

void SSOAPIRecords::SetUserInfo(sso_user_info &info, const char *userId, const char *prefixName,
                                const char *firstName, const char *lastName, const char *birthDate,
                                const char *zipCode, const char *mobileNum,
                                const char *receiveEmail, const char *auth)
{
    memset(&info, 0, sizeof(info));
    CopyCut(info.user_id, userId);
    CopyCut(info.prefix_name, prefixName);
    CopyCut(info.first_name, firstName);
    CopyCut(info.last_name, lastName);
    CopyCut(info.birth_date, birthDate);
    CopyCut(info.zip_code, zipCode);
    CopyCut(info.mobile_num, mobileNum);
    CopyCut(info.receive_email, receiveEmail);
    CopyCut(info.auth, auth);
}
