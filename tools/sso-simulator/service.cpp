#include "service.h"

#include <cstdint>
#include <exception>
#include <stdexcept>

#include "sim_log.h"

namespace ssosim {

Service::Service(GDBusConnection *connection, const Contract &contract, BehaviourTable &behaviours,
                 RequestFamilies &families, PayloadProvider &payloads, Delivery &delivery,
                 Timers &timers, bool sender_check)
    : connection_(connection), contract_(contract), behaviours_(behaviours), families_(families),
      payloads_(payloads), delivery_(delivery), timers_(timers), sender_check_(sender_check)
{
}

bool Service::SenderOwnsObject(const std::string &sender, const std::string &object_name)
{
    // "obj" + decimal pid, then "_" or the end.
    if (object_name.compare(0, 3, "obj") != 0)
        return false;
    std::size_t end = 3;
    while (end < object_name.size() && g_ascii_isdigit(object_name[end]))
        ++end;
    if (end == 3 || end - 3 > 10 || (end < object_name.size() && object_name[end] != '_'))
        return false;
    const std::int64_t named = std::stoll(object_name.substr(3, end - 3));

    auto known = sender_pids_.find(sender);
    if (known == sender_pids_.end()) {
        GError *error = nullptr;
        GVariant *reply = g_dbus_connection_call_sync(
            connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "GetConnectionUnixProcessID", g_variant_new("(s)", sender.c_str()),
            G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, &error);
        ErrorPtr owned_error(error);
        if (reply == nullptr) {
            SIM_LOGW("cannot learn the process id of %s: %s", sender.c_str(),
                     error != nullptr ? error->message : "");
            return false;
        }
        guint32 pid = 0;
        g_variant_get(reply, "(u)", &pid);
        g_variant_unref(reply);
        if (sender_pids_.size() >= 512)
            sender_pids_.clear();
        known = sender_pids_.emplace(sender, static_cast<std::int64_t>(pid)).first;
    }
    return known->second == named;
}

Service::~Service()
{
    Unregister();
}

void Service::Register()
{
    static const GDBusInterfaceVTable kVTable = {&Service::OnMethodCall, nullptr, nullptr, {}};
    // With the interface info GDBus rejects ill-typed calls (InvalidArgs)
    // before they reach us, as the real service would.
    registration_ =
        ExportObject(connection_, kServicePath, contract_.server_info(), &kVTable, this);
}

void Service::Unregister()
{
    UnexportObject(connection_, registration_);
}

void Service::OnMethodCall(GDBusConnection *, const gchar *sender, const gchar *, const gchar *,
                           const gchar *method_name, GVariant *parameters,
                           GDBusMethodInvocation *invocation, gpointer user_data)
{
    Invocation owned(invocation);
    try {
        static_cast<Service *>(user_data)->Handle(sender ? sender : "", method_name, parameters,
                                                  owned);
    } catch (...) {
        AnswerHandlerFailure(method_name, owned);
    }
}

void Service::Handle(const std::string &sender, const std::string &method, GVariant *params,
                     Invocation &invocation)
{
    journal_.push_back({sender, method, PrintVariant(params)});
    const ServerMethod *info = contract_.FindServerMethod(method);
    if (info == nullptr)
        throw std::runtime_error("no such method " + method);
    auto request = std::make_shared<const Request>(ParseRequest(*info, sender, params));
    if (info->kind == RequestKind::Async)
        SIM_LOGI("request %s from %s (object %s, request_id %lld, method_call %s)", method.c_str(),
                 sender.c_str(), request->object_name.c_str(),
                 static_cast<long long>(request->request_id), request->method_call.c_str());
    else
        SIM_LOGI("request %s from %s (object %s)", method.c_str(), sender.c_str(),
                 request->object_name.c_str());

    // A request is answered on the connection that sent it, and so is its
    // result; the object name must name that process too, or a client could
    // have results (and calls of its callback) sent to another one.
    if (sender_check_ && !SenderOwnsObject(sender, request->object_name)) {
        SIM_LOGW("%s from %s: object name %s is not the sender's; refused", method.c_str(),
                 sender.c_str(), request->object_name.c_str());
        if (info->kind == RequestKind::Data) {
            g_dbus_method_invocation_return_dbus_error(
                invocation.release(), kErrorNotYourObject,
                "the object name names another process than the sender");
            return;
        }
        if (info->kind == RequestKind::Async)
            ++tallies_[request->object_name].refused;
        g_dbus_method_invocation_return_value(invocation.release(),
                                              g_variant_new("(i)", kResultNotYourObject));
        return;
    }

    EffectiveBehaviour behaviour = behaviours_.For(method);
    behaviours_.Draw(behaviour);
    if (behaviour.no_answer) {
        SIM_LOGI("%s: scripted to stay unanswered", method.c_str());
        held_.push_back(std::move(invocation));
        return;
    }
    if (behaviour.answer_delay_ms == 0) {
        Answer(invocation, request, behaviour);
        return;
    }
    SIM_LOGD("%s: answering in %u ms", method.c_str(), behaviour.answer_delay_ms);
    // std::function needs a copyable closure, hence the shared owner.
    auto later = std::make_shared<Invocation>(std::move(invocation));
    timers_.After(behaviour.answer_delay_ms,
                  [this, later, request, behaviour]() { Answer(*later, request, behaviour); });
}

void Service::Answer(Invocation &invocation, const std::shared_ptr<const Request> &request,
                     const EffectiveBehaviour &behaviour)
{
    const std::string &method = request->method->name;
    if (!behaviour.error.empty()) {
        SIM_LOGI("answer %s: error %s", method.c_str(), behaviour.error.c_str());
        if (request->method->kind == RequestKind::Async)
            ++tallies_[request->object_name].refused;
        g_dbus_method_invocation_return_dbus_error(invocation.release(), behaviour.error.c_str(),
                                                   "scripted error of the SSO simulator");
        return;
    }
    if (request->method->kind == RequestKind::Data) {
        const std::string data = behaviour.payloads.empty() ? payloads_.DataAnswer(*request)
                                                            : behaviour.payloads.front();
        SIM_LOGI("answer %s: %zu bytes of data", method.c_str(), data.size());
        g_dbus_method_invocation_return_value(invocation.release(),
                                              g_variant_new("(s)", data.c_str()));
        return;
    }
    const RequestKind kind = request->method->kind;
    const std::int32_t accept =
        behaviour.accept ? *behaviour.accept
                         : (kind == RequestKind::Sync ? families_.SyncAccept(*request) : 1);
    SIM_LOGI("answer %s: %d", method.c_str(), accept);
    g_dbus_method_invocation_return_value(invocation.release(), g_variant_new("(i)", accept));
    if (kind == RequestKind::Async) {
        Tally &tally = tallies_[request->object_name];
        ++(accept == 1 ? tally.accepted : tally.refused);
    }

    if (kind == RequestKind::Sync && accept == 1)
        families_.SyncAccepted(*request);
    if (kind != RequestKind::Async || accept != 1)
        return;
    // The answer is queued on the connection before the delivery call, so the
    // client always sees the answer first.
    if (behaviour.result_delay_ms == 0) {
        Complete(*request, behaviour);
        return;
    }
    SIM_LOGD("%s: result due in %u ms", method.c_str(), behaviour.result_delay_ms);
    timers_.After(behaviour.result_delay_ms,
                  [this, request, behaviour]() { Complete(*request, behaviour); });
}

void Service::Complete(const Request &request, const EffectiveBehaviour &behaviour)
{
    const std::string &method = request.method->name;
    const Outcome outcome = families_.Compute(request);
    ResolvedResult result = ResolveResult(contract_.FindResultMethod(request.method_call), request,
                                          behaviour, outcome, payloads_);
    // A scripted failure means the service did nothing; a refusal has no
    // commit. A dropped result still leaves the state changed: only the
    // delivery is lost.
    if (outcome.commit && outcome.result == kResultOk && result.result == kResultOk) {
        try {
            outcome.commit(result.strings, result.scripted);
        } catch (const AccountError &e) {
            SIM_LOGE("%s request_id %lld: state change failed: %s", method.c_str(),
                     static_cast<long long>(request.request_id), e.error_name.c_str());
            if (!behaviour.result)
                result.result = kResultServiceError;
        }
    }
    if (behaviour.drop_result) {
        SIM_LOGI("%s request_id %lld: result dropped as scripted", method.c_str(),
                 static_cast<long long>(request.request_id));
        ++tallies_[request.object_name].dropped;
        return;
    }
    ++tallies_[request.object_name].delivered;
    delivery_.Deliver(request, result);
}

void AnswerHandlerFailure(const std::string &what, ObjectPtr<GDBusMethodInvocation> &invocation)
{
    try {
        throw;
    } catch (const std::exception &e) {
        SIM_LOGE("%s failed: %s", what.c_str(), e.what());
        if (invocation)
            g_dbus_method_invocation_return_error(invocation.release(), G_DBUS_ERROR,
                                                  G_DBUS_ERROR_FAILED, "%s", e.what());
    } catch (...) {
        SIM_LOGE("%s failed", what.c_str());
        if (invocation)
            g_dbus_method_invocation_return_error_literal(invocation.release(), G_DBUS_ERROR,
                                                          G_DBUS_ERROR_FAILED, "internal error");
    }
}

void AnswerInvalidArgs(const std::string &what, ObjectPtr<GDBusMethodInvocation> &invocation,
                       const char *message)
{
    SIM_LOGW("%s refused: %s", what.c_str(), message);
    if (invocation)
        g_dbus_method_invocation_return_error(invocation.release(), G_DBUS_ERROR,
                                              G_DBUS_ERROR_INVALID_ARGS, "%s", message);
}

} // namespace ssosim
