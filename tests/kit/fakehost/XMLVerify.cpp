#include "XMLVerify.h"

#include "Journal.h"

bool XMLVerify::verifySignature(const sal::Path& file) {
    return fakehost::Journal::instance().perform("verify " + file.getPathString());
}

std::string XMLVerify::signatureFault(const sal::Path& file) {
    return verifySignature(file) ? std::string() : "it is not signed";
}

std::string XMLVerify::signatureFault(const sal::Path& file, const std::string&) {
    return signatureFault(file);
}

std::string XMLVerify::signatureFault(const sal::Path& file, const std::string&, std::string&) {
    return signatureFault(file);
}

void XMLVerify::setCopy(const sal::Path& copy, const sal::Path& file, const std::string&) {
    fakehost::Journal::instance().perform("copy " + file.getPathString() + " " + copy.getPathString());
}

void XMLVerify::setTrustDirectory(const std::string&) {}
