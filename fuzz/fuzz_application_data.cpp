// Application data and the user-info view. The input is "<guid>\n<key>\n"
// followed by an application-data document; the document is stored as the
// item "SSO_PUBLICDATA_ID_<package id>" and CSSOSSData extracts the value of
// that key for that GUID, as the whitelist token requests do. The input,
// split at "|", also fills an sso_user_info (as the user-info callback gets
// it) whose JSON view must carry each field and never the auth value.
#include <json/json.h>
#include <vconf.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ICVConf.h"
#include "SSOAPIClientUtil.h"
#include "SSOAPIUtil.h"
#include "sso_api_records.h"
#include "account_documents.h"
#include "fuzz_support.h"
#include "sso_ss_data_storage.h"

namespace {

const char kPackageId[] = "org.example.fuzz";

// The next line of the input, or everything left when there is no line feed.
std::string TakeLine(std::string &rest)
{
    size_t end = rest.find('\n');
    std::string line = rest.substr(0, end);
    rest = end == std::string::npos ? std::string() : rest.substr(end + 1);
    return line;
}

void ExtractApplicationData(std::string rest)
{
    std::string guid = TakeLine(rest);
    std::string key = TakeLine(rest);
    int written = ssotest::WriteItem(std::string("SSO_PUBLICDATA_ID_") + kPackageId, rest);
    if (written != SS_ERROR_NONE)
        ssofuzz::Fail("ss_write of the application data failed", std::to_string(written));
    CSSOSSData *cache = SSOAPISingleton<CSSOSSData>::GetInstance();
    std::string value = "left over";
    bool found = cache->ExtractApplicationData(kPackageId, guid, key, value);
    if (!found && value != "left over")
        ssofuzz::Fail("a failed extraction changed the output");
    // Nothing is found for an empty GUID, whatever the document says.
    if (found && guid.empty())
        ssofuzz::Fail("a value was found for an empty GUID");
}

template <size_t N> void CheckField(const char *what, const char (&field)[N], const char *source)
{
    size_t length = strnlen(field, N);
    if (length > N - 2)
        ssofuzz::Fail(what, "is longer than its field allows");
    if (source == nullptr ? length != 0 : strncmp(field, source, length) != 0)
        ssofuzz::Fail(what, "is not a prefix of its source");
}

void UserInfoView(const std::string &input)
{
    std::vector<std::string> pieces;
    SSOAPIUtil::SplitParam(input, "|", pieces);
    const char *s[9] = {nullptr};
    for (size_t i = 0; i < 9 && i < pieces.size(); ++i)
        s[i] = pieces[i].c_str();

    sso_user_info info;
    SSOAPIRecords::SetUserInfo(info, s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8]);
    CheckField("user_id", info.user_id, s[0]);
    CheckField("prefix_name", info.prefix_name, s[1]);
    CheckField("first_name", info.first_name, s[2]);
    CheckField("last_name", info.last_name, s[3]);
    CheckField("birth_date", info.birth_date, s[4]);
    CheckField("zip_code", info.zip_code, s[5]);
    CheckField("mobile_num", info.mobile_num, s[6]);
    CheckField("receive_email", info.receive_email, s[7]);
    CheckField("auth", info.auth, s[8]);

    char *json = nullptr;
    if (!SSOAPIClientUtil::GetJsonStringUserInfoAndCountryCode(info, &json) || json == nullptr)
        ssofuzz::Fail("GetJsonStringUserInfoAndCountryCode failed");
    std::string text = json;
    free(json);
    Json::Value root;
    if (!SSOAPIClientUtil::m_GetJsonObjectFromString(text, root) || !root.isObject())
        ssofuzz::Fail("the user-info text does not parse", text);
    if (root.isMember("auth"))
        ssofuzz::Fail("the user-info text carries the auth value");
    if (root["user_id"].asString() != info.user_id ||
        root["receive_email"].asString() != info.receive_email)
        ssofuzz::Fail("the user-info text does not carry the record", text);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    ssofuzz::SetUpPlatform();
    vconf_set_str(VCONF_UC_CODE_ALPHA2, "KR");
    vconf_set_str(VCONF_UC_CODE_ALPHA3, "KOR");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string input = ssofuzz::AsText(data, size);
    ExtractApplicationData(input);
    UserInfoView(input);
    return 0;
}
