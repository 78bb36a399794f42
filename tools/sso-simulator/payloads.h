// The "payload provider" layer: the last resort for a result string that
// neither a script nor the request's family (families.h) fills, as when a
// request asks for delivery on another family's client method. Values are
// made up but realistic, chosen by the client argument's name (an access
// token looks like a token, a birthday like a date).
//
// The data reads answer from the accounts layer: the public document as last
// written, and the signed-in account's application data.
#pragma once

#include <string>

#include "account_service.h"
#include "contract.h"

namespace ssosim {

class PayloadProvider {
public:
    // accounts may be null: the data reads then answer "".
    explicit PayloadProvider(const AccountService *accounts = nullptr) : accounts_(accounts) {}

    // The string argument arg_name of the result call client_method for the
    // request, when the behaviour scripted no payload for it.
    std::string ResultString(const Request &request, const std::string &client_method,
                             const std::string &arg_name);
    // The (s) answer of a data read (sso_get_public_account_data,
    // sso_get_extracted_application_data) when none was scripted.
    std::string DataAnswer(const Request &request);

private:
    static std::string RandomHex(std::size_t digits);

    const AccountService *accounts_;
};

} // namespace ssosim
