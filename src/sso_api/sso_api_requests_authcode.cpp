// User auth codes bound to a device security code, optionally with a PKCE
// code challenge or verifier. The three requests collect their arguments in
// one record and share a sender; the tuple's shape follows the method name.
#include <sso_api/sso_api.h>

#include <cstdint>
#include <string>

#include "SSOAPIClientUtil.h"
#include "sso_api_guard.h"
#include "sso_api_private.h"
#include "sso_log.h"

namespace {

constexpr const char *kWithDsc = "sso_request_user_authcode_with_dsc";
constexpr const char *kWithChallenge = "sso_request_user_authcode_with_challenge";
constexpr const char *kWithVerifier = "sso_request_user_authcode_with_verifier";

// The fields every variant fills alike.
void FillCommon(_SSOAPIReqAuthCodeWithDSCData &data, const char *method, const char *app_id,
                const char *scope, const char *dsc, const char *response_type,
                sso_request_auth_code_cb callback, void *user_data)
{
    data.methodName = method;
    data.clientId = app_id;
    data.scope = SSOAPIClientUtil::GetParameterWithCheckNoValue(scope);
    data.deviceSecurityCode = SSOAPIClientUtil::GetParameterWithCheckNoValue(dsc);
    data.responseType = SSOAPIClientUtil::GetParameterWithCheckNoValue(response_type);
    data.pRequestAuthCodeCB = callback;
    data.pUserData = user_data;
}

} // namespace

std::string _SSOAPIReqAuthCodeWithDSCData::ToString() const
{
    std::string text = "[";
    text += "\n  methodName: " + methodName;
    text += "\n  clientId: " + clientId;
    text += "\n  scope: " + scope;
    text += "\n  deviceSecurityCode: " + deviceSecurityCode;
    text += "\n  responseType: " + responseType;
    text += "\n  codeChallenge: " + codeChallenge;
    text += "\n  codeVerifier: " + codeVerifier;
    text +=
        "\n  pRequestAuthCodeCB: " + std::to_string(sso_private_pointer_value(pRequestAuthCodeCB));
    text += "\n  pUserData: " + std::to_string(sso_private_pointer_value(pUserData));
    text += "\n]";
    return text;
}

int sso_private_request_user_authcode_with_dsc(const _SSOAPIReqAuthCodeWithDSCData &data)
{
    SSO_LOG_START();
    SSO_LOG_DEVEL("reqAuthCodeWithDSCData %s", data.ToString().c_str());
    SSO_RETURN_IF_SERVICE_NOT_ALIVE(-1);
    SSO_RETURN_IF_NOT_LOGGED_IN(-1);

    // The challenge and the verifier travel as a fifth text.
    const bool withCode = data.methodName == kWithVerifier || data.methodName == kWithChallenge;
    const std::string &code =
        data.methodName == kWithVerifier ? data.codeVerifier : data.codeChallenge;
    auto logSent = [](const char *fn, const SSORequestFrame &frame) {
        SSO_LOGY_FOR(fn, "dbusObjName[%s] dbusProxyTid[%lld]", frame.objectName().c_str(),
                     frame.requestId());
    };
    SSORequestName name(data.methodName.c_str(), __func__);
    if (withCode)
        return sso_private_send_request(
            name, {data.clientId, data.scope, data.deviceSecurityCode, data.responseType, code},
            data.pRequestAuthCodeCB, data.pUserData, logSent);
    return sso_private_send_request(
        name, {data.clientId, data.scope, data.deviceSecurityCode, data.responseType},
        data.pRequestAuthCodeCB, data.pUserData, logSent);
}

extern "C" {

SSO_API int sso_request_user_authcode_with_dsc(const char *app_id, const char *scope,
                                               const char *dsc, const char *response_type,
                                               sso_request_auth_code_cb callback, void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"scope", scope}, {"dsc", dsc},
                           {"response_type", response_type});
    SSO_REFUSE_IF(app_id == nullptr || callback == nullptr, "app_id or request_auth_code_cb");
    _SSOAPIReqAuthCodeWithDSCData data;
    FillCommon(data, kWithDsc, app_id, scope, dsc, response_type, callback, user_data);
    return sso_private_request_user_authcode_with_dsc(data);
}
SSO_API_CATCH(-1)

SSO_API int sso_request_user_authcode_with_challenge(const char *app_id, const char *scope,
                                                     const char *dsc, const char *response_type,
                                                     const char *code_challenge,
                                                     sso_request_auth_code_cb callback,
                                                     void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"scope", scope}, {"dsc", dsc},
                           {"response_type", response_type}, {"code_challenge", code_challenge});
    SSO_REFUSE_IF(app_id == nullptr || callback == nullptr || code_challenge == nullptr,
                  "app_id or request_auth_code_cb or code_challenge is null");
    _SSOAPIReqAuthCodeWithDSCData data;
    FillCommon(data, kWithChallenge, app_id, scope, dsc, response_type, callback, user_data);
    data.codeChallenge = SSOAPIClientUtil::GetParameterWithCheckNoValue(code_challenge);
    return sso_private_request_user_authcode_with_dsc(data);
}
SSO_API_CATCH(-1)

SSO_API int sso_request_user_authcode_with_verifier(const char *app_id, const char *scope,
                                                    const char *dsc, const char *response_type,
                                                    const char *code_verifier,
                                                    sso_request_auth_code_cb callback,
                                                    void *user_data)
try {
    SSO_LOG_START();
    SSO_REFUSE_IF_NOT_UTF8({"app_id", app_id}, {"scope", scope}, {"dsc", dsc},
                           {"response_type", response_type}, {"code_verifier", code_verifier});
    SSO_REFUSE_IF(app_id == nullptr || callback == nullptr || code_verifier == nullptr,
                  "app_id or request_auth_code_cb or code_verifier is null");
    _SSOAPIReqAuthCodeWithDSCData data;
    FillCommon(data, kWithVerifier, app_id, scope, dsc, response_type, callback, user_data);
    data.codeVerifier = SSOAPIClientUtil::GetParameterWithCheckNoValue(code_verifier);
    return sso_private_request_user_authcode_with_dsc(data);
}
SSO_API_CATCH(-1)

} // extern "C"
