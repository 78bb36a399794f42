#include "SSOAPIRequestRegistry.h"

#include <algorithm>

#include "sso_log.h"

SSOAPIRequestRegistry::Ticket SSOAPIRequestRegistry::Add(const std::string &delivery,
                                                         gint64 callback, gint64 userData)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_byTicket.size() >= kCapacity) {
        SSO_LOGE("%zu requests wait for their results: the oldest is forgotten", m_byTicket.size());
        EraseLocked(m_byTicket.begin()->first);
    }
    Ticket ticket = m_next++;
    Key key(delivery, callback, userData);
    m_byTicket.emplace(ticket, key);
    m_byKey[key].push_back(ticket);
    return ticket;
}

void SSOAPIRequestRegistry::EraseLocked(Ticket ticket)
{
    auto it = m_byTicket.find(ticket);
    if (it == m_byTicket.end())
        return;
    auto byKey = m_byKey.find(it->second);
    if (byKey != m_byKey.end()) {
        auto &tickets = byKey->second;
        tickets.erase(std::remove(tickets.begin(), tickets.end(), ticket), tickets.end());
        if (tickets.empty())
            m_byKey.erase(byKey);
    }
    m_byTicket.erase(it);
}

void SSOAPIRequestRegistry::Remove(Ticket ticket)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    EraseLocked(ticket);
}

bool SSOAPIRequestRegistry::Complete(const std::string &method, gint64 callback, gint64 userData)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto byKey = m_byKey.find(Key(method, callback, userData));
    if (byKey == m_byKey.end())
        return false;
    Ticket oldest = byKey->second.front();
    byKey->second.pop_front();
    m_byTicket.erase(oldest);
    if (byKey->second.empty())
        m_byKey.erase(byKey);
    return true;
}

void SSOAPIRequestRegistry::Clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_byTicket.clear();
    m_byKey.clear();
}

size_t SSOAPIRequestRegistry::size()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_byTicket.size();
}
