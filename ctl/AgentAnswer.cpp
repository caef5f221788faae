// SPDX-License-Identifier: Apache-2.0
// Looks at every member before it is used.
#include "ctl/AgentAnswer.h"

#include "survey/AgentSocket.h"

#include <stdexcept>

namespace Vestrel {

namespace {

constexpr int mostLevels = 16; // of an answer, far beyond what an agent sends

const Json* memberOf(const Json& object, const std::string& name) {
    const auto found = object.is_object() ? object.find(name) : object.end();
    return found == object.end() ? nullptr : &*found;
}

using Kind = bool (Json::*)() const noexcept;

const Json& as(Kind isKind, const char* kind, const Json& value, const std::string& name) {
    if (!(value.*isKind)()) {
        notAsAgreed("\"" + name + "\" is not " + kind);
    }
    return value;
}

const Json& memberIn(const Json& object, const std::string& name) {
    const Json* const found = memberOf(object, name);
    if (found == nullptr) {
        notAsAgreed("\"" + name + "\" is missing");
    }
    return *found;
}

} // namespace

void unanswered(const std::string& why) {
    throw std::runtime_error("the agent does not answer: " + why);
}

void notAsAgreed(const std::string& what) {
    unanswered(std::string("not as agreed at ") + agentSocket + ": " + what);
}

Json parametersOf(std::string_view method, std::string_view line) {
    bool isTooDeep = false;
    const Json answer = jsonValue(line, mostLevels, isTooDeep);
    const Json* const parameters = memberOf(answer, "parameters");
    if (parameters == nullptr) {
        notAsAgreed("no object with \"parameters\"");
    }
    if (const Json* const error = memberOf(answer, "error")) {
        throw std::runtime_error("the agent refuses " + std::string(method) + ": " +
                                 jsonText(*error) + " " + jsonText(*parameters));
    }
    return *parameters;
}

const Json& asObject(const Json& value, const std::string& name) {
    return as(&Json::is_object, "an object", value, name);
}

const Json& asText(const Json& value, const std::string& name) {
    return as(&Json::is_string, "a text", value, name);
}

const Json& objectIn(const Json& object, const std::string& name) {
    return asObject(memberIn(object, name), name);
}

const Json& listIn(const Json& object, const std::string& name) {
    return as(&Json::is_array, "a list", memberIn(object, name), name);
}

const Json& textIn(const Json& object, const std::string& name) {
    return asText(memberIn(object, name), name);
}

const Json& numberIn(const Json& object, const std::string& name) {
    return as(&Json::is_number_integer, "a whole number", memberIn(object, name), name);
}

bool flagIn(const Json& object, const std::string& name) {
    return as(&Json::is_boolean, "true or false", memberIn(object, name), name).get<bool>();
}

std::vector<std::string> textsIn(const Json& object, const std::string& name) {
    std::vector<std::string> texts;
    for (const Json& value :
         as(&Json::is_structured, "a collection", memberIn(object, name), name)) {
        texts.push_back(asText(value, name));
    }
    return texts;
}

const Json& countersOf(const Json& status, const std::string& keyring) {
    return objectIn(objectIn(objectIn(status, "counters"), "keyrings"), keyring);
}

std::optional<Refusal> refusalOf(const Json& counters, const std::string& path) {
    const Json& refused = objectIn(counters, "refused");
    if (!refused.contains(path)) {
        return std::nullopt;
    }
    const Json& refusal = objectIn(refused, path);
    return Refusal{textIn(refusal, "reason"), numberIn<std::int64_t>(refusal, "number")};
}

} // namespace Vestrel
