// The requests of this process that wait for a result. A result is handed to
// the application only when it matches one of them (the client method it
// arrives on, the callback value and the user data the request sent), and
// completes it: a result the process did not ask for, or one more than it
// asked for, is never delivered. Pointers that arrive over the bus are thus
// never called unless this process sent them.
//
// Bounded: a result that never comes must not hold memory for ever. Beyond
// kCapacity entries the oldest one is forgotten (logged); its result, should
// it still come, is dropped like any unknown one.
//
// Thread-safe; one leaf lock.
#pragma once

#include <glib.h>

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <tuple>

class SSOAPIRequestRegistry {
public:
    static constexpr size_t kCapacity = 4096;

    // Identifies one recorded request, to forget it again if it is refused.
    using Ticket = uint64_t;

    // Records a request whose result is to arrive on delivery with these
    // callback and user-data values.
    Ticket Add(const std::string &delivery, gint64 callback, gint64 userData);
    // Forgets a request that was refused or failed to go out.
    void Remove(Ticket ticket);
    // True, and the oldest matching request completed, when a result
    // arriving on method with these values was asked for.
    bool Complete(const std::string &method, gint64 callback, gint64 userData);
    // Forgets every request (their results can no longer come).
    void Clear();
    size_t size();

private:
    using Key = std::tuple<std::string, gint64, gint64>;
    std::mutex m_mutex;
    Ticket m_next = 1;                         // guarded by m_mutex
    std::map<Ticket, Key> m_byTicket;          // guarded by m_mutex; oldest first
    std::map<Key, std::deque<Ticket>> m_byKey; // guarded by m_mutex

    void EraseLocked(Ticket ticket);
};
