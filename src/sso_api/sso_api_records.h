// The records two of the result callbacks receive, filled from the texts of
// a result: the name check's and the user information.
#pragma once

#include <sso_api/sso_api.h>

class SSOAPIRecords {
public:
    // Each text is cut one byte short of its field; a null text leaves its
    // field empty.
    static void SetNameCheckAuthInfo(sso_name_check_auth_info_s &info, const char *birthDate,
                                     const char *age, const char *checkUrl);
    static void SetUserInfo(sso_user_info &info, const char *userId, const char *prefixName,
                            const char *firstName, const char *lastName, const char *birthDate,
                            const char *zipCode, const char *mobileNum, const char *receiveEmail,
                            const char *auth);
};
