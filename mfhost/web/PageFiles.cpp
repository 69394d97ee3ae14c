#include "PageFiles.h"

#include <algorithm>

const PageFile* findPageFile(std::string_view path) {
    if (path == "/")
        path = "/index.html";
    const auto& files = pageFiles();
    const auto found =
        std::find_if(files.begin(), files.end(), [path](const PageFile& file) { return file.path == path; });
    return found == files.end() ? nullptr : &*found;
}
