#pragma once

#include <string>

#include "IInterface.h"

/// The host as a driver sees it. queryInterface(IID_IFunctionID) gives an IFunctionID whose sendFID takes a
/// whole FID ("AXIS1.MOVE") and sends it through the manager, in the host's process and in a driver process
/// alike.
class ISystem : public virtual IInterface {
public:
    /// Asks the host to run a console command. Any thread; returns at once. The host runs only what it was
    /// told to allow and logs a refusal; nothing comes back.
    virtual void executeCommand(const std::string& command, const std::string& arguments) = 0;
};
