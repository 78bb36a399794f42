// The simulated SSO service object: every request is journaled, then treated
// as its method's behaviour says (answer now, later, with an error, or
// never; deliver the result, later, or not at all). What nobody scripted (the
// answer of a synchronous control, the result and payloads of an
// asynchronous request) the request families decide from the state when it
// is due; the state changes only when the delivered result is 0.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "behaviour.h"
#include "contract.h"
#include "delivery.h"
#include "families.h"
#include "payloads.h"
#include "records.h"
#include "timers.h"

namespace ssosim {

// Called inside a catch block of a method handler: logs the failure under
// what ("<what> failed: <message>") and answers the call, if it is still
// unanswered, with G_DBUS_ERROR_FAILED and the message ("internal error"
// for what is not a std::exception).
void AnswerHandlerFailure(const std::string &what, ObjectPtr<GDBusMethodInvocation> &invocation);

// Answers the call, if it is still unanswered, with G_DBUS_ERROR_INVALID_ARGS
// and the message, after a warning under what ("<what> refused: <message>").
void AnswerInvalidArgs(const std::string &what, ObjectPtr<GDBusMethodInvocation> &invocation,
                       const char *message);

class Service {
public:
    Service(GDBusConnection *connection, const Contract &contract, BehaviourTable &behaviours,
            RequestFamilies &families, PayloadProvider &payloads, Delivery &delivery,
            Timers &timers, bool sender_check = true);
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Exports the server object. Throws std::runtime_error.
    void Register();
    void Unregister();

    const std::vector<JournalEntry> &journal() const { return journal_; }
    void ClearJournal() { journal_.clear(); }
    // Lets go of requests kept unanswered (no_answer); their callers time out.
    void ReleaseHeld() { held_.clear(); }

    // What became of the asynchronous requests of one client (by object
    // name): answered 1 or not (refused or a D-Bus error), and of the
    // accepted, results sent or dropped. Kept while the journal is cleared.
    struct Tally {
        std::uint64_t accepted = 0;
        std::uint64_t refused = 0;
        std::uint64_t delivered = 0;
        std::uint64_t dropped = 0;
    };
    const std::map<std::string, Tally> &tallies() const { return tallies_; }
    void ClearTallies() { tallies_.clear(); }

private:
    using Invocation = ObjectPtr<GDBusMethodInvocation>;

    static void OnMethodCall(GDBusConnection *connection, const gchar *sender,
                             const gchar *object_path, const gchar *interface_name,
                             const gchar *method_name, GVariant *parameters,
                             GDBusMethodInvocation *invocation, gpointer user_data);
    void Handle(const std::string &sender, const std::string &method, GVariant *params,
                Invocation &invocation);
    void Answer(Invocation &invocation, const std::shared_ptr<const Request> &request,
                const EffectiveBehaviour &behaviour);
    // Whether the process that sent a request is the one its object name
    // ("obj<pid>_<app id>") names: only then may its result be sent.
    bool SenderOwnsObject(const std::string &sender, const std::string &object_name);
    // The result of an accepted asynchronous request, when it is due:
    // decided, the state changed, then delivered (unless dropped).
    void Complete(const Request &request, const EffectiveBehaviour &behaviour);

    GDBusConnection *connection_;
    const Contract &contract_;
    BehaviourTable &behaviours_;
    RequestFamilies &families_;
    PayloadProvider &payloads_;
    Delivery &delivery_;
    Timers &timers_;
    guint registration_ = 0;
    std::vector<JournalEntry> journal_;
    std::vector<Invocation> held_;
    std::map<std::string, Tally> tallies_;
    bool sender_check_;
    // Process ids of senders by unique name (a unique name is never reused
    // on one bus); emptied when it grows past a few hundred.
    std::map<std::string, std::int64_t> sender_pids_;
};

} // namespace ssosim
