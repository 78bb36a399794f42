#include "behaviour.h"

#include <map>

#include "glib_util.h"

namespace ssosim {

namespace {

template <typename T> void Take(std::optional<T> &into, const std::optional<T> &from)
{
    if (from)
        into = from;
}

void ExpectType(GVariant *value, const char *type, const char *key)
{
    if (!g_variant_is_of_type(value, G_VARIANT_TYPE(type)))
        throw BehaviourError(std::string("behaviour key '") + key + "' must have type '" + type +
                             "', got '" + g_variant_get_type_string(value) + "'");
}

} // namespace

void Behaviour::MergeFrom(const Behaviour &other)
{
    Take(accept, other.accept);
    Take(result, other.result);
    Take(payloads, other.payloads);
    Take(answer_delay_ms, other.answer_delay_ms);
    Take(result_delay_ms, other.result_delay_ms);
    Take(drop_result, other.drop_result);
    Take(error, other.error);
    Take(no_answer, other.no_answer);
    Take(refuse_percent, other.refuse_percent);
    Take(drop_percent, other.drop_percent);
    Take(answer_delay_max_ms, other.answer_delay_max_ms);
    Take(result_delay_max_ms, other.result_delay_max_ms);
    Take(random_seed, other.random_seed);
}

bool Behaviour::empty() const
{
    return !accept && !result && !payloads && !answer_delay_ms && !result_delay_ms &&
           !drop_result && !error && !no_answer && !refuse_percent && !drop_percent &&
           !answer_delay_max_ms && !result_delay_max_ms && !random_seed;
}

std::string Behaviour::Describe() const
{
    std::string s;
    auto add = [&s](const std::string &item) { s += (s.empty() ? "" : " ") + item; };
    if (accept)
        add("accept=" + std::to_string(*accept));
    if (result)
        add("result=" + std::to_string(*result));
    if (payloads)
        add("payloads=" + std::to_string(payloads->size()));
    if (answer_delay_ms)
        add("answer_delay_ms=" + std::to_string(*answer_delay_ms));
    if (result_delay_ms)
        add("result_delay_ms=" + std::to_string(*result_delay_ms));
    if (drop_result)
        add(std::string("drop_result=") + (*drop_result ? "true" : "false"));
    if (error)
        add("error=" + (error->empty() ? std::string("(none)") : *error));
    if (no_answer)
        add(std::string("no_answer=") + (*no_answer ? "true" : "false"));
    if (refuse_percent)
        add("refuse_percent=" + std::to_string(*refuse_percent));
    if (drop_percent)
        add("drop_percent=" + std::to_string(*drop_percent));
    if (answer_delay_max_ms)
        add("answer_delay_max_ms=" + std::to_string(*answer_delay_max_ms));
    if (result_delay_max_ms)
        add("result_delay_max_ms=" + std::to_string(*result_delay_max_ms));
    if (random_seed)
        add("random_seed=" + std::to_string(*random_seed));
    return s.empty() ? "(nothing)" : s;
}

Behaviour BehaviourFromVariant(GVariant *dict)
{
    if (!g_variant_is_of_type(dict, G_VARIANT_TYPE_VARDICT))
        throw BehaviourError("behaviour must be a{sv}");
    // The keys that take their value as it comes.
    static const std::map<std::string, std::optional<std::int32_t> Behaviour::*> kInt32Keys = {
        {"accept", &Behaviour::accept},
        {"result", &Behaviour::result},
    };
    static const std::map<std::string, std::optional<std::uint32_t> Behaviour::*> kUint32Keys = {
        {"answer_delay_ms", &Behaviour::answer_delay_ms},
        {"result_delay_ms", &Behaviour::result_delay_ms},
        {"answer_delay_max_ms", &Behaviour::answer_delay_max_ms},
        {"result_delay_max_ms", &Behaviour::result_delay_max_ms},
        {"random_seed", &Behaviour::random_seed},
    };
    static const std::map<std::string, std::optional<bool> Behaviour::*> kBoolKeys = {
        {"drop_result", &Behaviour::drop_result},
        {"no_answer", &Behaviour::no_answer},
    };
    Behaviour b;
    ForEachVardictEntry(dict, [&b](const gchar *key, GVariant *value) {
        const std::string k = key;
        if (auto it = kInt32Keys.find(k); it != kInt32Keys.end()) {
            ExpectType(value, "i", key);
            b.*(it->second) = g_variant_get_int32(value);
        } else if (auto it = kUint32Keys.find(k); it != kUint32Keys.end()) {
            ExpectType(value, "u", key);
            b.*(it->second) = g_variant_get_uint32(value);
        } else if (auto it = kBoolKeys.find(k); it != kBoolKeys.end()) {
            ExpectType(value, "b", key);
            b.*(it->second) = g_variant_get_boolean(value) != FALSE;
        } else if (k == "payloads") {
            ExpectType(value, "as", key);
            std::vector<std::string> list;
            GVariantIter items;
            g_variant_iter_init(&items, value);
            const gchar *item = nullptr;
            while (g_variant_iter_next(&items, "&s", &item))
                list.emplace_back(item);
            b.payloads = std::move(list);
        } else if (k == "error") {
            ExpectType(value, "s", key);
            std::string name = g_variant_get_string(value, nullptr);
            // Error names follow interface-name rules; GDBus refuses others.
            if (!name.empty() && !g_dbus_is_interface_name(name.c_str()))
                throw BehaviourError("'" + name + "' is not a valid D-Bus error name");
            b.error = std::move(name);
        } else if (k == "refuse_percent" || k == "drop_percent") {
            ExpectType(value, "u", key);
            const std::uint32_t percent = g_variant_get_uint32(value);
            if (percent > 100)
                throw BehaviourError("behaviour key '" + k + "' must be 0 to 100");
            (k == "refuse_percent" ? b.refuse_percent : b.drop_percent) = percent;
        } else {
            throw BehaviourError("unknown behaviour key '" + k +
                                 "' (known: accept, result, payloads, answer_delay_ms, "
                                 "result_delay_ms, drop_result, error, no_answer, refuse_percent, "
                                 "drop_percent, answer_delay_max_ms, result_delay_max_ms, "
                                 "random_seed)");
        }
    });
    return b;
}

void BehaviourTable::Check(const std::string &method) const
{
    if (method != kAllMethods && !is_known_(method))
        throw BehaviourError("unknown method '" + method + "'");
}

void BehaviourTable::Configure(const std::string &method, const Behaviour &behaviour)
{
    Check(method);
    scripted_[method].MergeFrom(behaviour);
    if (behaviour.random_seed)
        random_.seed(*behaviour.random_seed);
}

void BehaviourTable::Reset(const std::string &method)
{
    Check(method);
    scripted_.erase(method);
}

void BehaviourTable::ResetAll()
{
    scripted_.clear();
}

EffectiveBehaviour BehaviourTable::For(const std::string &method) const
{
    Behaviour merged;
    auto all = scripted_.find(kAllMethods);
    if (all != scripted_.end())
        merged.MergeFrom(all->second);
    auto own = scripted_.find(method);
    if (own != scripted_.end())
        merged.MergeFrom(own->second);
    EffectiveBehaviour e;
    e.accept = merged.accept;
    e.result = merged.result;
    if (merged.payloads)
        e.payloads = *merged.payloads;
    e.answer_delay_ms = merged.answer_delay_ms.value_or(0);
    e.result_delay_ms = merged.result_delay_ms.value_or(0);
    e.drop_result = merged.drop_result.value_or(false);
    e.error = merged.error.value_or("");
    e.no_answer = merged.no_answer.value_or(false);
    e.refuse_percent = merged.refuse_percent.value_or(0);
    e.drop_percent = merged.drop_percent.value_or(0);
    e.answer_delay_max_ms = merged.answer_delay_max_ms.value_or(0);
    e.result_delay_max_ms = merged.result_delay_max_ms.value_or(0);
    return e;
}

void BehaviourTable::Draw(EffectiveBehaviour &e)
{
    auto chance = [this](std::uint32_t percent) {
        return percent > 0 &&
               std::uniform_int_distribution<std::uint32_t>(1, 100)(random_) <= percent;
    };
    auto upto = [this](std::uint32_t max) {
        return std::uniform_int_distribution<std::uint32_t>(0, max)(random_);
    };
    if (chance(e.refuse_percent))
        e.accept = 0;
    if (chance(e.drop_percent))
        e.drop_result = true;
    if (e.answer_delay_max_ms > 0)
        e.answer_delay_ms = upto(e.answer_delay_max_ms);
    if (e.result_delay_max_ms > 0)
        e.result_delay_ms = upto(e.result_delay_max_ms);
}

} // namespace ssosim
