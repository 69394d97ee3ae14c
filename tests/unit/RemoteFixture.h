#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "CannedHost.h"
#include "ControlError.h"
#include "RemoteControl.h"
#include "TemporaryDirectory.h"

/// A host with canned answers, and a remote control that writes into texts.
class RemoteFixture : public testing::Test {
protected:
    using Json = nlohmann::json;

    /// Behaves as with --json where asJson.
    RemoteControl control(bool asJson = false) {
        return RemoteControl(Screen{m_out, m_err}, {m_host.path(), asJson});
    }
    /// The members of the last action of that kind, without those that every action has.
    Json members(const std::string& what) const {
        Json body = Json::parse(m_host.lastBody(what), nullptr, false);
        for (const char* pName : {"request", "timeoutMs"}) {
            if (body.is_object())
                body.erase(pName);
        }
        return body;
    }
    /// How long the host was given for it, in milliseconds.
    int timeoutOf(const std::string& what) const {
        return Json::parse(m_host.lastBody(what), nullptr, false).value("timeoutMs", 0);
    }
    /// The exit code and the text of the error that the operation throws.
    template <class Operation>
    std::pair<EExit, std::string> errorOf(Operation operation) {
        try {
            operation();
        } catch (const ControlError& error) {
            return {error.exit(), error.what()};
        }
        return {EExit::Done, "no error"};
    }
    std::string out() const { return m_out.str(); }
    std::string err() const { return m_err.str(); }

    TemporaryDirectory m_directory;
    CannedHost m_host{m_directory.path("mfhost.sock")};
    std::ostringstream m_out;
    std::ostringstream m_err;
};
