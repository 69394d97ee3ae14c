#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AnswerOnce.h"
#include "ApiActions.h"
#include "ApiCall.h"
#include "ApiContext.h"
#include "ApiReading.h"
#include "ApiTarget.h"
#include "RequestMemory.h"

/// The API, from a request to its answer: finds the resource, holds the role, the method and what was sent
/// against it, has each action done once, and says when it takes longer than the caller waits. docs/api.yaml
/// has the resources. Owned by Host; outlives what runs on the command thread and what senders tell.
class ApiHandler {
public:
    using Answer = AnswerOnce::Answer;

    explicit ApiHandler(ApiContext context, RequestMemory::Settings memory = {});
    ApiHandler(const ApiHandler&) = delete;
    ApiHandler& operator=(const ApiHandler&) = delete;

    /// API thread; returns at once. answer is called exactly once: at once on this thread, or later on
    /// another one. It may be called under locks of the host: it returns at once, throws nothing, and calls
    /// nothing of the host.
    void handle(const ApiCall& call, Answer answer);

private:
    struct Resource;
    static const std::vector<Resource>& resources();

    void handleChecked(const ApiCall& call, const std::shared_ptr<AnswerOnce>& pAnswer);
    void read(const Resource& resource, const ApiTarget& target, const ApiCall& call,
              const std::shared_ptr<AnswerOnce>& pAnswer);
    static void orFault(const ApiCall& call, const std::shared_ptr<AnswerOnce>& pAnswer,
                        const std::function<void()>& run);
    void readPast(const Resource& resource, const ApiTarget& target, const ApiCall& call,
                  const std::shared_ptr<AnswerOnce>& pAnswer);
    void readHistory(const std::string& number, const ApiCall& call,
                     const std::shared_ptr<AnswerOnce>& pAnswer);
    void act(const Resource& resource, const ApiTarget& target, const ApiCall& call,
             const std::shared_ptr<AnswerOnce>& pAnswer);
    void limit(const std::shared_ptr<AnswerOnce>& pAnswer, std::chrono::milliseconds time,
               std::function<ApiAnswer()> late);

    const ApiContext m_context;
    const ApiReading m_reading;
    const ApiActions m_actions;
    /// Actions that are going on have it, too.
    const std::shared_ptr<RequestMemory> m_pMemory;
    /// Shared by those that wait for the command thread only to read: they are counted by it.
    const std::shared_ptr<const char> m_pReading;
};
