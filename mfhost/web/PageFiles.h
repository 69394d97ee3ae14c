#pragma once

#include <string_view>
#include <vector>

/// The files of the web panel's page, as they lay in page/ when the host was built. Any thread.
struct PageFile {
    std::string_view path;  ///< "/app.js"
    std::string_view contentType;
    std::string_view etag;  ///< as the header of that name has it; another one for other bytes
    std::string_view bytes;
    std::string_view zipped;  ///< the same as gzip has them; empty where that is no shorter
};

/// In byte order of the paths. Written at build time.
const std::vector<PageFile>& pageFiles();
/// The page itself for "/"; null when there is no such file.
const PageFile* findPageFile(std::string_view path);
