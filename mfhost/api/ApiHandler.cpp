#include "ApiHandler.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <exception>
#include <optional>
#include <string_view>
#include <utility>

#include "ApiBody.h"
#include "ApiFault.h"
#include "HostLog.h"
#include "JsonText.h"
#include "MetricsText.h"
#include "Nearest.h"
#include "PendingAction.h"
#include "Printable.h"
#include "StreamFeed.h"

namespace {

using ECode = ApiFault::ECode;

/// What a FID's sender has beyond the time that the caller waits: it tells how far the FID has come by then.
constexpr std::chrono::seconds s_senderGrace{1};
/// For what only asks, and is answered by the command thread.
constexpr std::chrono::seconds s_readingLimit{5};
/// Of those, that may wait for a command thread that is at something else: its queue is for commands.
constexpr long s_mostReadings = 32;
/// For what reads the recording.
constexpr std::chrono::seconds s_pastLimit{10};

/// Stands in a path for the name of a driver, of a macro, or a number.
constexpr const char* s_name = "*";

bool isMatch(const std::vector<std::string>& pattern, const std::vector<std::string>& path) {
    return std::equal(pattern.begin(), pattern.end(), path.begin(), path.end(),
                      [](const auto& word, const auto& given) { return word == s_name || word == given; });
}

std::string joined(const std::vector<std::string>& path) {
    std::string text;
    for (const std::string& word : path)
        text += '/' + word;
    return text.empty() ? "/" : text;
}

/// Whose a request ID is. Names may change, and be of several users; sessions of one user may have several
/// roles, and what one of them was answered is not for those with less.
std::string ownerOf(const ApiCaller& caller) {
    return std::to_string(caller.uid) + ' ' + inWords(caller.role);
}

/// What the path's name is, where the pattern has one.
std::string nameIn(const std::vector<std::string>& pattern, const std::vector<std::string>& path) {
    const auto position = std::find(pattern.begin(), pattern.end(), s_name);
    return position == pattern.end() ? std::string()
                                     : path.at(static_cast<std::size_t>(position - pattern.begin()));
}

bool isJson(std::string_view contentType) {
    std::string type(contentType.substr(0, contentType.find(';')));
    while (!type.empty() && (type.back() == ' ' || type.back() == '\t'))
        type.pop_back();
    std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::tolower(c); });
    return type == "application/json";
}

ApiAnswer goesOn(const std::string& request) {
    JsonText json;
    json.beginObject();
    if (!request.empty())
        json.member("request", request);
    json.member("text", "it goes on").endObject();
    return {.status = 202, .body = json.take()};
}

}  // namespace

struct ApiHandler::Resource {
    std::vector<std::string> path;
    const char* method = nullptr;
    ERole role = ERole::None;
    /// Of GET; null for what the command thread answers.
    std::string (*pRead)(const ApiReading&, const ApiTarget&, const ApiCall&,
                         const std::string& name) = nullptr;
    /// Of GET, where the answer comes piece by piece.
    std::shared_ptr<IAnswerBody> (*pOpen)(const ApiContext&, const ApiTarget&) = nullptr;
    /// Of POST.
    void (ApiActions::*pAct)(const ApiRequest&) const = nullptr;
    /// Of the query, or of the body beside "request" and "timeoutMs".
    std::vector<std::string> known;
    /// Of what pRead gives.
    const char* contentType = ApiAnswer::s_json;
    /// Of GET, where the recording is read for it.
    std::string (ApiReading::*pReadPast)(const std::string& name, const ApiTarget&) const = nullptr;
};

const std::vector<ApiHandler::Resource>& ApiHandler::resources() {
    using R = const ApiReading&;
    using T = const ApiTarget&;
    using C = const ApiCall&;
    using N = const std::string&;
    const auto get = [](std::vector<std::string> path, decltype(Resource::pRead) pRead,
                        std::vector<std::string> known = {}, const char* contentType = ApiAnswer::s_json) {
        return Resource{std::move(path), "GET",   ERole::View,      pRead,
                        nullptr,         nullptr, std::move(known), contentType};
    };
    const auto getStream = [](std::vector<std::string> path, decltype(Resource::pOpen) pOpen,
                              std::vector<std::string> known) {
        return Resource{std::move(path), "GET",   ERole::View,      nullptr,
                        pOpen,           nullptr, std::move(known), StreamFeed::s_contentType};
    };
    const auto getPast = [](std::vector<std::string> path, decltype(Resource::pReadPast) pReadPast,
                            std::vector<std::string> known) {
        return Resource{.path = std::move(path),
                        .method = "GET",
                        .role = ERole::View,
                        .known = std::move(known),
                        .pReadPast = pReadPast};
    };
    const auto post = [](std::vector<std::string> path, ERole role, decltype(Resource::pAct) pAct,
                         std::vector<std::string> known = {}) {
        known.insert(known.end(), {"request", "timeoutMs"});
        return Resource{std::move(path), "POST", role, nullptr, nullptr, pAct, std::move(known)};
    };
    using enum ERole;
    static const std::vector<Resource> s_resources{
        get({"healthz"}, [](R reading, T, C, N) { return reading.health(); }),
        get(
            {"metrics"}, [](R reading, T, C, N) { return reading.metrics(); }, {},
            MetricsText::s_contentType),
        get({"api", "v1"}, [](R reading, T, C call, N) { return reading.host(call.caller); }),
        get({"api", "v1", "health"}, [](R reading, T, C, N) { return reading.health(); }),
        get({"api", "v1", "drivers"}, [](R reading, T, C, N) { return reading.drivers(); }),
        get({"api", "v1", "drivers", s_name}, [](R reading, T, C, N name) { return reading.driver(name); }),
        get({"api", "v1", "state"}, [](R reading, T target, C, N) { return reading.state(target); },
            {"counts", "glob", "since"}),
        getPast({"api", "v1", "drivers", s_name, "runs"}, &ApiReading::runs, {"limit"}),
        getPast({"api", "v1", "state", s_name, "history"}, &ApiReading::stateHistory,
                {"from", "to", "points"}),
        get({"api", "v1", "events"}, [](R reading, T, C, N) { return reading.events(); }),
        get({"api", "v1", "alarms"}, [](R reading, T, C, N) { return reading.alarms(); }),
        get({"api", "v1", "controls"}, [](R reading, T, C, N) { return reading.controls(); }),
        get({"api", "v1", "queues"}, [](R reading, T, C, N) { return reading.queues(); }),
        get({"api", "v1", "macros"}, [](R reading, T, C, N) { return reading.macros(); }),
        get({"api", "v1", "links"}, [](R reading, T, C, N) { return reading.links(); }),
        get({"api", "v1", "completion"}, [](R reading, T target, C, N) { return reading.completion(target); },
            {"line"}),
        get({"api", "v1", "catalogue"}, [](R reading, T, C, N) { return reading.catalogue(); }),
        get({"api", "v1", "modules"}, [](R reading, T, C, N) { return reading.modules(); }),
        get({"api", "v1", "log"}, [](R reading, T target, C, N) { return reading.log(target); },
            {"driver", "lines", "level"}),
        getStream({"api", "v1", "stream"}, &StreamFeed::open,
                  {"kinds", "drivers", "glob", "from", "last", "level", "lines", "follow"}),
        get({"api", "v1", "sessions"}, [](R reading, T, C, N) { return reading.sessions(); }),
        get({"api", "v1", "history"}, nullptr),
        get({"api", "v1", "history", s_name}, nullptr),
        post({"api", "v1", "fid"}, Operate, &ApiActions::sendFid, {"fid", "parameters", "wait"}),
        post({"api", "v1", "state"}, Operate, &ApiActions::setState, {"key", "type", "value"}),
        post({"api", "v1", "unset"}, Operate, &ApiActions::unsetState, {"key"}),
        post({"api", "v1", "event"}, Operate, &ApiActions::triggerEvent, {"id", "value"}),
        post({"api", "v1", "acknowledge"}, Operate, &ApiActions::acknowledge, {"keys"}),
        post({"api", "v1", "shelve"}, Operate, &ApiActions::shelve, {"keys", "seconds"}),
        post({"api", "v1", "controls"}, Operate, &ApiActions::changeControls, {"take", "unlessHeld"}),
        post({"api", "v1", "macros", s_name, "play"}, Operate, &ApiActions::playMacro),
        post({"api", "v1", "plan"}, Operate, &ApiActions::plan),
        post({"api", "v1", "check"}, Operate, &ApiActions::check),
        post({"api", "v1", "panel"}, View, &ApiActions::openPanel),
        post({"api", "v1", "pair"}, View, &ApiActions::pair, {"role"}),
        post({"api", "v1", "sessions", s_name, "revoke"}, Admin, &ApiActions::endSession),
        post({"api", "v1", "drivers", s_name, "reload"}, Admin, &ApiActions::reload),
        post({"api", "v1", "drivers", s_name, "debug"}, Admin, &ApiActions::debug),
        post({"api", "v1", "drivers", s_name, "park"}, Admin, &ApiActions::park),
        post({"api", "v1", "drivers", s_name, "unpark"}, Admin, &ApiActions::unpark),
        post({"api", "v1", "drivers", s_name, "wire"}, Admin, &ApiActions::recordWire, {"seconds"}),
        post({"api", "v1", "apply"}, Admin, &ApiActions::apply, {"plan"}),
        post({"api", "v1", "undo"}, Admin, &ApiActions::undo, {"number"}),
        post({"api", "v1", "console"}, Admin, &ApiActions::console, {"line", "columns"}),
        post({"api", "v1", "shutdown"}, Admin, &ApiActions::shutDown),
    };
    return s_resources;
}

ApiHandler::ApiHandler(ApiContext context, RequestMemory::Settings memory)
    : m_context(std::move(context)),
      m_reading(m_context),
      m_actions(m_context, m_reading),
      m_pMemory(std::make_shared<RequestMemory>(std::move(memory))),
      m_pReading(std::make_shared<const char>()) {}

void ApiHandler::handle(const ApiCall& call, Answer answer) {
    const auto pAnswer = std::make_shared<AnswerOnce>(std::move(answer));
    orFault(call, pAnswer, [&] { handleChecked(call, pAnswer); });
}

/// What is thrown is the answer.
void ApiHandler::orFault(const ApiCall& call, const std::shared_ptr<AnswerOnce>& pAnswer,
                         const std::function<void()>& run) {
    try {
        run();
    } catch (const ApiFault& fault) {
        pAnswer->give(fault.answer());
    } catch (const std::exception& error) {
        hostLog(sal::LogOutput::eError) << "the request " << call.method << " " << call.target
                                        << " is broken off: " << error.what() << std::endl;
        pAnswer->give(ApiFault(ECode::Internal, error.what()).answer());
    }
}

void ApiHandler::handleChecked(const ApiCall& call, const std::shared_ptr<AnswerOnce>& pAnswer) {
    if (call.caller.role == ERole::None)
        throw ApiFault(ECode::NotAllowed,
                       call.caller.name + " has no role here; \"view\" is needed at least");
    const ApiTarget target = ApiTarget::read(call.target);
    std::vector<const Resource*> found;
    for (const Resource& resource : resources()) {
        if (isMatch(resource.path, target.path))
            found.push_back(&resource);
    }
    if (found.empty()) {
        std::vector<std::string> paths;
        for (const Resource& resource : resources()) {
            std::vector<std::string> path = resource.path;
            const auto name = std::find(path.begin(), path.end(), s_name);
            if (name != path.end() && path.size() != target.path.size())
                continue;
            if (name != path.end())
                *name = target.path[static_cast<std::size_t>(name - path.begin())];
            if (std::find(paths.begin(), paths.end(), joined(path)) == paths.end())
                paths.push_back(joined(path));
        }
        const std::string path = joined(target.path);
        throw ApiFault(ECode::NotFound, "there is no resource " + path, base::nearest(path, paths));
    }
    const auto resource = std::find_if(found.begin(), found.end(), [&](const Resource* pResource) {
        return call.method == pResource->method;
    });
    if (resource == found.end()) {
        std::string methods;
        for (const Resource* pResource : found)
            methods += (methods.empty() ? "" : ", ") + std::string(pResource->method);
        throw ApiFault(ECode::MethodNotAllowed,
                       joined(target.path) + " takes " + methods + ", not " + base::printable(call.method))
            .withAllow(methods);
    }
    if (call.caller.role < (*resource)->role)
        throw ApiFault(ECode::NotAllowed, std::string("the role \"") + inWords((*resource)->role) +
                                              "\" is needed; " + call.caller.name + " has \"" +
                                              inWords(call.caller.role) + "\"");
    if ((*resource)->pAct)
        act(**resource, target, call, pAnswer);
    else
        read(**resource, target, call, pAnswer);
}

void ApiHandler::read(const Resource& resource, const ApiTarget& target, const ApiCall& call,
                      const std::shared_ptr<AnswerOnce>& pAnswer) {
    target.allowQuery(resource.known);
    if (!call.body.empty())
        throw ApiFault(ECode::RequestInvalid, "GET takes no body");
    const std::string name = nameIn(resource.path, target.path);
    if (resource.pOpen)
        pAnswer->give(
            {.contentType = resource.contentType, .body = {}, .pMore = resource.pOpen(m_context, target)});
    else if (resource.pRead)
        pAnswer->give(
            {.contentType = resource.contentType, .body = resource.pRead(m_reading, target, call, name)});
    else if (resource.pReadPast)
        readPast(resource, target, call, pAnswer);
    else
        readHistory(name, call, pAnswer);
}

void ApiHandler::readPast(const Resource& resource, const ApiTarget& target, const ApiCall& call,
                          const std::shared_ptr<AnswerOnce>& pAnswer) {
    m_context.lookForEnds();
    const bool isPosted = m_context.readPast(
        [this, pRead = resource.pReadPast, name = nameIn(resource.path, target.path), target, call, pAnswer] {
            orFault(call, pAnswer, [&] { pAnswer->give({.body = (m_reading.*pRead)(name, target)}); });
        });
    if (!isPosted)
        throw ApiFault(ECode::Busy, "too many requests wait for the recording already");
    limit(pAnswer, s_pastLimit,
          [] { return ApiFault(ECode::Busy, "the recording is still being read").answer(); });
}

/// It is the command thread's; an empty number is the list.
void ApiHandler::readHistory(const std::string& number, const ApiCall& call,
                             const std::shared_ptr<AnswerOnce>& pAnswer) {
    unsigned value = 0;
    const char* pEnd = number.data() + number.size();
    const auto result = std::from_chars(number.data(), pEnd, value);
    if (!number.empty() && (result.ec != std::errc() || result.ptr != pEnd))
        throw ApiFault(ECode::NotFound, "there is no resource " + joined({"api", "v1", "history", number}));
    // One is the handler's own.
    if (m_pReading.use_count() > s_mostReadings)
        throw ApiFault(ECode::Busy, "too many requests wait for the history already");
    const auto pAction =
        std::make_shared<PendingAction>(m_pMemory, ownerOf(call.caller), std::string(), pAnswer);
    m_actions.perform(
        pAction, call.caller, "history",
        [this, isList = number.empty(), value, pReading = m_pReading] {
            return ApiAnswer{.body = isList ? m_reading.history() : m_reading.historyEntry(value)};
        },
        ApiActions::ERecorded::Elsewhere);
    limit(pAnswer, s_readingLimit, [this] {
        const CommandActivity activity = m_context.activity();
        return ApiFault(ECode::Busy, "the host is busy with \"" + activity.what + "\"").answer();
    });
}

void ApiHandler::act(const Resource& resource, const ApiTarget& target, const ApiCall& call,
                     const std::shared_ptr<AnswerOnce>& pAnswer) {
    target.allowQuery({});
    if (!call.body.empty() && !isJson(call.contentType))
        throw ApiFault(ECode::MediaType, "the body is of the type " + base::quoted(call.contentType) +
                                             " where application/json is needed");
    const ApiBody body(call.body, resource.known);
    const std::string request = body.request();
    const auto timeout = body.timeout();
    if (!request.empty()) {
        const auto begin = m_pMemory->begin(ownerOf(call.caller), request,
                                            joined(target.path) + ' ' + body.content(), pAnswer);
        if (begin == RequestMemory::EBegin::Differs)
            throw ApiFault(ECode::RequestDiffers,
                           "the request " + request + " was something else when it came first");
        if (begin == RequestMemory::EBegin::Full)
            throw ApiFault(ECode::TooMany, "too many requests of " + call.caller.name + " are going on");
        if (begin == RequestMemory::EBegin::Known) {
            limit(pAnswer, timeout, [request] { return goesOn(request); });
            return;
        }
    }
    const auto pAction = std::make_shared<PendingAction>(m_pMemory, ownerOf(call.caller), request, pAnswer);
    try {
        (m_actions.*resource.pAct)({call.caller, nameIn(resource.path, target.path), body, pAction});
    } catch (const ApiFault& fault) {
        pAction->end(fault.answer());
    } catch (const std::exception& error) {
        pAction->end(ApiFault(ECode::Internal, error.what()).answer());
        throw;
    }
    const bool isFid = resource.pAct == &ApiActions::sendFid;
    limit(pAnswer, isFid ? timeout + s_senderGrace : timeout, [request] { return goesOn(request); });
}

/// What has not been answered by then is answered with this.
void ApiHandler::limit(const std::shared_ptr<AnswerOnce>& pAnswer, std::chrono::milliseconds time,
                       std::function<ApiAnswer()> late) {
    if (pAnswer->isGiven())
        return;
    m_context.after(time, [pWeak = std::weak_ptr<AnswerOnce>(pAnswer), late = std::move(late)] {
        if (const auto pWaiting = pWeak.lock())
            pWaiting->give(late());
    });
}
