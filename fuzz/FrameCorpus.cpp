#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "GoldenFrame.h"

namespace {

void write(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    if (!file)
        throw std::runtime_error("cannot write " + path.string());
}

/// A frame as FuzzDriverMessages and FuzzHostMessages read it: its length, low byte first, and its bytes.
std::string framed(const std::string& bytes) {
    return {std::string{static_cast<char>(bytes.size() & 0xff), static_cast<char>(bytes.size() >> 8)} +
            bytes};
}

}  // namespace

// Writes each golden frame, and all of them as one burst, into the folder named as the only argument.
int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: fuzz_frames FOLDER" << std::endl;
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        std::filesystem::create_directories(folder);
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(MFD_TEST_DATA_DIR "/frames")) {
            if (entry.path().extension() != ".hex")
                continue;
            const std::string name = entry.path().stem().string();
            const std::string bytes = framed(goldenText(name));
            write(folder / name, bytes);
            all += bytes;
            // The same code in a message whose fields reach its very end, and would reach beyond it.
            const std::string full = goldenText(name).substr(0, 6) + std::string(1018, '\xff');
            write(folder / (name + "-full"), framed(full));
        }
        write(folder / "all", all);
    } catch (const std::exception& e) {
        std::cerr << e.what() << std::endl;
        return 1;
    }
    return 0;
}
