#include "issued.h"

namespace ssosim {

const IssuedEntry &IssuedJournal::Record(IssuedEntry entry)
{
    entry.sequence = next_++;
    entries_.push_back(std::move(entry));
    return entries_.back();
}

IssuedEntry *IssuedJournal::Find(const std::string &value)
{
    for (auto it = entries_.rbegin(); it != entries_.rend(); ++it)
        if (it->value == value)
            return &*it;
    return nullptr;
}

void IssuedJournal::RevokeAll()
{
    for (auto &e : entries_)
        e.revoked = true;
}

Json::Value IssuedJournal::ToJson() const
{
    Json::Value list(Json::arrayValue);
    for (const auto &e : entries_) {
        Json::Value v(Json::objectValue);
        v["sequence"] = e.sequence;
        v["kind"] = e.kind;
        v["value"] = e.value;
        v["method"] = e.method;
        v["app_id"] = e.app_id;
        v["account_guid"] = e.account_guid;
        v["scope"] = e.scope;
        v["package"] = e.package;
        Json::Value extra(Json::objectValue);
        for (const auto &[key, value] : e.extra)
            extra[key] = value;
        v["extra"] = extra;
        v["scripted"] = e.scripted;
        v["revoked"] = e.revoked;
        v["redeemed"] = e.redeemed;
        list.append(v);
    }
    Json::Value out(Json::objectValue);
    out["issued"] = list;
    return out;
}

} // namespace ssosim
