#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ControlledWorkplace.h"
#include "SegmentReader.h"

/// Base of the tests of what a host records: where its files lie.
class RecordedWorkplace : public ControlledWorkplace {
protected:
    /// The rings of hosts that run or have died.
    static std::vector<std::string> rings() {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator("/dev/shm")) {
            if (entry.path().filename() == "stream.ring")
                found.push_back(entry.path());
        }
        return found;
    }
    std::string recording() { return workplace().workdir() / "recording"; }
    std::vector<std::string> segments() { return segmentsIn(recording()); }
    std::vector<std::string> boxes() { return segmentsIn(recording() + "/blackbox"); }

    /// Null where nothing whole is in it.
    static std::unique_ptr<stream::SegmentReader> open(const std::string& segment) {
        std::string error;
        return stream::SegmentReader::open(segment, error);
    }

    /// The line of JSON of a POST, as the control socket takes it.
    static std::string post(const std::string& path, const std::string& body) {
        return "POST " + path + " HTTP/1.1\r\nHost: h\r\nContent-Type: application/json\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body;
    }
    /// Has an Echo set a number; answered when it is delivered.
    static std::string postNumber(const std::string& driverID, int number) {
        return post("/api/v1/fid", R"({"fid":")" + driverID + R"(.INT","parameters":{"name":"N","value":")" +
                                       std::to_string(number) + R"("},"wait":"delivered"})");
    }

private:
    /// In the order of their names.
    static std::vector<std::string> segmentsIn(const std::string& directory) {
        std::vector<std::string> found;
        std::error_code none;
        for (const auto& entry : std::filesystem::directory_iterator(directory, none)) {
            if (entry.path().extension() == ".seg")
                found.push_back(entry.path());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
};
