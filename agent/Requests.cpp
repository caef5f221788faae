// SPDX-License-Identifier: Apache-2.0
// Requests of the status socket, answered from the type tables.
#include "agent/Requests.h"

#include "keyring/KeyringCounters.h"
#include "platform/brisklog/Brisklog.h"
#include "platform/zell/LogFacility.h"
#include "syslog/KernelMessageCounters.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace Vestrel {

namespace {

constexpr unsigned wholeDepth = 4; // keyrings, one keyring, its file sets
constexpr unsigned memberDepth = 1;
constexpr int mostLevels = 8;                               // of a request
constexpr std::size_t traceBytes = std::size_t{512} * 1024; // of texts in one answer

// Leaves a method on its way to the answer.
struct RequestError {
    std::string name;
    Json parameters;
};

Json succeeded(Json parameters) {
    Json reply = Json::object();
    reply["parameters"] = std::move(parameters);
    return reply;
}

Json failed(const RequestError& error) {
    Json reply = Json::object();
    reply["error"] = error.name;
    reply["parameters"] = error.parameters;
    return reply;
}

// Only these parameters may be there.
void onlyAllowed(const Json& parameters, std::initializer_list<std::string_view> names) {
    for (const auto& [name, value] : parameters.items()) {
        if (std::ranges::find(names, name) == names.end()) {
            throw RequestError{"InvalidParameter", {{"parameter", name}}};
        }
    }
}

Json counters() {
    Json all = Json::object();
    Json& keyrings = all["keyrings"] = Json::object();
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        keyrings[name] = reflected(KeyringCounters::typeData(), &KeyringCounters::of(name), 0);
    }
    const KernelMessageCounters& kernelMessages = KernelMessageCounters::counters();
    all["kernelMessages"] = reflected(KernelMessageCounters::typeData(), &kernelMessages, 0);
    all["log"] = reflected(Zell::LogFacility::typeData(), nullptr, 0);
    return all;
}

std::uint64_t sequenceOf(const Json& parameters) {
    const auto after = parameters.find("after");
    if (after == parameters.end()) {
        return 0;
    }
    if (!after->is_number_unsigned()) {
        throw RequestError{"InvalidParameter", {{"parameter", "after"}}};
    }
    return after->get<std::uint64_t>();
}

Json parsed(std::string_view request) {
    bool isTooDeep = false;
    Json value = jsonValue(request, mostLevels, isTooDeep);
    if (isTooDeep) {
        throw RequestError{"InvalidRequest",
                           {{"reason", "nested too deeply"}, {"limit", mostLevels}}};
    }
    return value;
}

} // namespace

Requests::Requests(Host host) : host_(std::move(host)) {}

std::string Requests::tooLong(std::size_t limit) {
    return jsonText(failed({"LineTooLong", {{"limit", limit}}}));
}

std::string Requests::answer(std::string_view request) const {
    try {
        std::string reply = jsonText(succeeded(perform(parsed(request))));
        if (reply.size() > maxReply) {
            throw RequestError{"ReplyTooLarge", {{"limit", maxReply}}};
        }
        return reply;
    } catch (const RequestError& error) {
        return jsonText(failed(error));
    }
}

Json Requests::perform(const Json& request) const {
    if (!request.is_object() || !request.contains("method") || !request["method"].is_string()) {
        throw RequestError{"InvalidRequest", {{"reason", "not a JSON object with a method"}}};
    }
    const Json parameters = request.value("parameters", Json::object());
    if (!parameters.is_object()) {
        throw RequestError{"InvalidRequest", {{"reason", "parameters are not an object"}}};
    }
    const auto method = request["method"].get<std::string>();
    if (method == "Status") {
        onlyAllowed(parameters, {});
        return status();
    }
    if (method == "Keyrings") {
        onlyAllowed(parameters, {"keyring"});
        return keyrings(parameters);
    }
    if (method == "Resync") {
        onlyAllowed(parameters, {});
        return resync();
    }
    if (method == "Trace") {
        onlyAllowed(parameters, {"after"});
        return trace(parameters);
    }
    throw RequestError{"MethodNotFound", {{"method", method}}};
}

Json Requests::status() const {
    Json result = Json::object();
    result["agent"] = reflected(AgentInfo::typeData(), &info_, 0);
    result["keyringStateMachine"] = reflected(host_.keyringSm(), memberDepth);
    result["syslogStateMachine"] = reflected(host_.syslogSm(), memberDepth);
    result["counters"] = counters();
    result["drift"] = reflected(DriftRecord::typeData(), &host_.drift(), 0);
    return result;
}

Json Requests::keyrings(const Json& parameters) const {
    const IntegrityKeyringColl& all = *host_.keyringSm().integrityKeyringColl();
    const auto wanted = parameters.find("keyring");
    if (wanted == parameters.end()) {
        return reflected(all, wholeDepth);
    }
    const auto one = wanted->is_string() ? all.keyring(wanted->get<std::string>()) : nullptr;
    if (!one) {
        throw RequestError{"InvalidParameter", {{"parameter", "keyring"}}};
    }
    Json result = Json::object();
    result["keyring"][wanted->get<std::string>()] = reflected(*one, wholeDepth);
    return result;
}

Json Requests::resync() const {
    Json differed = Json::array();
    for (const std::string& difference : host_.resync()) {
        differed.push_back(difference);
    }
    Json result = Json::object();
    result["differences"] = std::move(differed);
    return result;
}

Json Requests::trace(const Json& parameters) {
    const std::uint64_t after = sequenceOf(parameters);
    Json events = Json::array();
    std::uint64_t last = 0;
    std::size_t bytes = 0;
    bool more = false;
    for (const Brisklog::Event& event : Brisklog::events()) {
        last = more ? last : event.sequence;
        if (event.sequence <= after || more) {
            continue;
        }
        events.push_back(reflected(Brisklog::Event::typeData(), &event, 0));
        bytes += events.back()["text"].get_ref<const std::string&>().size();
        more = bytes > traceBytes;
    }
    Json result = Json::object();
    result["events"] = std::move(events);
    result["last"] = last;
    result["more"] = more;
    result["dropped"] = Brisklog::dropped();
    return result;
}

} // namespace Vestrel
