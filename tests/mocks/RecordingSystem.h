#pragma once

#include <string>

#include "ISystem.h"
#include "Journal.h"

/// A host's system interface that notes the commands it is given.
class RecordingSystem : public ISystem {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    void executeCommand(const std::string& command, const std::string& arguments) override {
        fakehost::Journal::instance().note("system executeCommand " + command + " " + arguments);
    }
};
