// Calls into client processes: the result of an accepted asynchronous
// request, and arbitrary calls a test asks for. All calls are asynchronous so
// a slow or dead client never stalls the service.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "behaviour.h"
#include "contract.h"
#include "families.h"
#include "glib_util.h"
#include "payloads.h"
#include "records.h"

namespace ssosim {

// A result with every field decided.
struct ResolvedResult {
    std::int32_t result = kResultOk;
    // Every payload string of the client method by argument name, plus the
    // outcome's other values (what a state change may need).
    ResultValues strings;
    std::set<std::string> scripted; // names whose value is a scripted payload
};

// The scripted result wins over the outcome's. Scripted payloads fill the
// client method's string arguments in order; the others get the outcome's
// value, "" after a refusal, else the provider's default. client may be null
// (method_call names no client method).
ResolvedResult ResolveResult(const ClientMethod *client, const Request &request,
                             const EffectiveBehaviour &behaviour, const Outcome &outcome,
                             PayloadProvider &payloads);

// The arguments of the result call client for request: filled by argument
// name (obj_name = own_object_name, the callback second, request values
// unchanged, result and string payloads from result).
VariantPtr BuildResultArgs(const ClientMethod &client, const Request &request,
                           const ResolvedResult &result, const std::string &own_object_name);

class Delivery {
public:
    Delivery(GDBusConnection *connection, const Contract &contract, std::string own_object_name);
    ~Delivery();
    Delivery(const Delivery &) = delete;
    Delivery &operator=(const Delivery &) = delete;

    // Sends the result of request to its client, as named by method_call.
    void Deliver(const Request &request, const ResolvedResult &result);

    // Calls method on bus_name's client object; done gets "" on success or
    // "<error name>: <message>". params must be a tuple.
    using Done = std::function<void(const std::string &error)>;
    void CallClient(const std::string &bus_name, const std::string &method, GVariant *params,
                    Done done);

    const std::vector<DeliveryRecord> &records() const { return records_; }
    void ClearRecords() { records_.clear(); }

    // Cancels calls still waiting for a reply and runs their completions, so
    // nothing is left holding memory when the daemon exits.
    void Shutdown();

private:
    struct Pending;
    static void OnReply(GObject *source, GAsyncResult *result, gpointer data);
    void Send(const std::string &bus_name, const std::string &method, GVariant *params, Done done);

    GDBusConnection *connection_;
    const Contract &contract_;
    std::string own_object_name_;
    GCancellable *cancellable_;
    int in_flight_ = 0;
    std::vector<DeliveryRecord> records_;
};

} // namespace ssosim
