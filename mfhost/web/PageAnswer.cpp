#include "PageAnswer.h"

#include <string>

#include "ApiFault.h"
#include "PageFiles.h"
#include "Printable.h"

namespace {

using ECode = ApiFault::ECode;

/// Scripts, styles, pictures and connections of this place alone, none of them within a page; no other page
/// may show this one in a frame.
constexpr const char* s_policy =
    "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'; object-src 'none'";

}  // namespace

ApiAnswer answerPage(std::string_view path, const HttpRequest& request) {
    const PageFile* pFile = findPageFile(path);
    if (!pFile)
        return ApiFault(ECode::NotFound, "there is no file " + base::quoted(path)).answer();
    if (!request.isSafe())
        return ApiFault(ECode::MethodNotAllowed,
                        "a file takes GET, HEAD, not " + base::printable(request.method))
            .withAllow("GET, HEAD")
            .answer();
    ApiAnswer answer;
    answer.contentType = pFile->contentType;
    // Kept, and asked for again each time: a host of another version has another page.
    answer.cache = "no-cache";
    const bool isZipped = request.takesGzip && !pFile->zipped.empty();
    answer.fields = {{"ETag", std::string(pFile->etag)}, {"Vary", "Accept-Encoding"}};
    answer.fields.emplace_back("Content-Security-Policy", s_policy);
    answer.fields.emplace_back("X-Frame-Options", "DENY");
    if (request.knownTag == pFile->etag) {
        answer.status = 304;
        return answer;
    }
    if (isZipped)
        answer.fields.emplace_back("Content-Encoding", "gzip");
    answer.body = isZipped ? pFile->zipped : pFile->bytes;
    return answer;
}

void addSafety(ApiAnswer& answer) {
    answer.fields.emplace_back("X-Content-Type-Options", "nosniff");
    answer.fields.emplace_back("Referrer-Policy", "no-referrer");
    answer.fields.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
}
