#pragma once

#include <fstream>
#include <ios>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/// The bytes of tests/data/frames/NAME.hex, which both ends of the queue protocol are held to.
/// MFD_TEST_DATA_DIR is set by the build.
inline std::vector<unsigned char> goldenFrame(const std::string& name) {
    std::ifstream file(MFD_TEST_DATA_DIR "/frames/" + name + ".hex");
    if (!file)
        throw std::runtime_error("no golden frame " + name);
    std::vector<unsigned char> bytes;
    unsigned int byte = 0;
    while (file >> std::hex >> byte)
        bytes.push_back(static_cast<unsigned char>(byte));
    return bytes;
}

/// The same as text, for comparing with what was sent.
inline std::string goldenText(const std::string& name) {
    const std::vector<unsigned char> bytes = goldenFrame(name);
    return {bytes.begin(), bytes.end()};
}
