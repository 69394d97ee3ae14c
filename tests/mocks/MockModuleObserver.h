#pragma once

#include <gmock/gmock.h>

#include <string>

#include "sal/Module.h"

/// What is told of the calls into drivers.
class MockModuleObserver : public sal::Module::Observer {
public:
    MOCK_METHOD(void, callBegins, (const std::string& driverID, const char* operation), (override));
    MOCK_METHOD(void, callEnded, (const std::string& driverID, const char* operation), (override));
    MOCK_METHOD(void, callReturned, (const std::string& driverID, const char* operation, bool ok),
                (override));
    MOCK_METHOD(void, driverDeleted, (const std::string& driverID), (override));
    MOCK_METHOD(void, loadFailed, (const std::string& path, const std::string& reason), (override));
    MOCK_METHOD(void, fidBegins,
                (const std::string& driverID, const std::string& fid, const FIDParameterList& parameters),
                (override));
    MOCK_METHOD(void, fidEnded, (const std::string& driverID, bool ok, const char* exception), (override));
};
