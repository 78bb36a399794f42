// The account operations the control interface offers and the data reads
// answer from: the registry decides, the publisher writes. One object, so
// every path (control call, demo preload, start-up) goes through the same
// steps in the same order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounts.h"
#include "publisher.h"

namespace ssosim {

class AccountService {
public:
    // seed makes generated identifiers reproducible.
    explicit AccountService(std::optional<std::uint32_t> seed = std::nullopt);
    AccountService(const AccountService &) = delete;
    AccountService &operator=(const AccountService &) = delete;

    // Publishes the current (signed-out) state, so the store is consistent
    // before the first client can look.
    void Start();
    // Three demo accounts, nobody signed in.
    void AddDemoAccounts();

    // Each throws AccountError.
    std::string Add(const AccountFields &fields); // returns the GUID
    // Removing the signed-in account signs it out first.
    void Remove(const std::string &login_id_or_guid);
    // Signs in; when someone else is signed in, switches.
    void SignIn(const std::string &login_id_or_guid);
    void SignOut();
    // Not published (passwords never are).
    void SetPassword(const std::string &login_id_or_guid, const std::string &password)
    {
        registry_.SetPassword(login_id_or_guid, password);
    }
    void Publish() { publisher_.PublishCurrent(registry_); }
    void WritePublicData(const std::string &text) { publisher_.WriteRawDocument(text); }
    void SetApplicationData(const std::string &package, const std::string &guid,
                            const std::string &key, const std::string &value)
    {
        publisher_.SetApplicationData(package, guid, key, value);
    }
    void RemoveApplicationData(const std::string &package)
    {
        publisher_.RemoveApplicationData(package);
    }

    // {"accounts": [...], "active": guid or "", "version": n}
    std::string AccountsJson() const;
    // {"signed_in": guid or "", "version": n}
    std::string StateJson() const;

    // What the data reads answer.
    const std::string &PublicDocumentText() const { return publisher_.document(); }
    // The signed-in account's value of key in package's data; "" when there
    // is none or nobody is signed in.
    std::string ExtractedValue(const std::string &package, const std::string &key) const;

    const AccountRegistry &registry() const { return registry_; }

private:
    IdGenerator ids_;
    AccountRegistry registry_;
    Publisher publisher_;
};

} // namespace ssosim
