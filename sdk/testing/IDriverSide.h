#pragma once

#include <string>

#include "FIDParameterList.h"

namespace mfd::testing {

/// A driver under test in one of the modes. Owned by the workplace, used by the test's thread. What returns a
/// text returns what is wrong, empty for nothing.
class IDriverSide {
public:
    /// What a host hands in.
    struct Configuration {
        std::string driverID;
        std::string workingDirectory;
        std::string nvramDirectory;
    };

    virtual ~IDriverSide() = default;
    virtual std::string start(const Configuration& configuration) = 0;
    virtual std::string stop() = 0;
    virtual std::string kill() = 0;
    virtual std::string refuseFids(bool refused) = 0;
    virtual bool send(const std::string& fid, const FIDParameterList& parameters) = 0;
    virtual bool isRunning() const = 0;
};

}  // namespace mfd::testing
