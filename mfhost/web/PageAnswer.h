#pragma once

#include <string_view>

#include "ApiCall.h"
#include "HttpRequest.h"

/// Answers a request for one of the page's own files, whoever asks: there is nothing of the workplace in
/// them. path: of the target, without its query. Any thread.
ApiAnswer answerPage(std::string_view path, const HttpRequest& request);

/// What every answer of the web port bears: that a browser takes it for nothing else than it is, and tells
/// nobody where it was.
void addSafety(ApiAnswer& answer);
