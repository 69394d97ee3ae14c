#pragma once

#include <string>
#include <utility>

#include "IFunctionID.h"
#include "Journal.h"
#include "RecordingParameters.h"

/// A function-ID endpoint that notes each call under its name.
class RecordingFunctionID : public IFunctionID {
public:
    explicit RecordingFunctionID(std::string name, bool result = true)
        : m_name(std::move(name)), m_result(result) {}
    ~RecordingFunctionID() override { note("gone"); }

    IInterface* queryInterface(unsigned int) override { return nullptr; }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        note("sendFID " + fid + " " + recorded(parameters));
        return m_result;
    }
    bool subscribe(const std::string& fid) const override {
        note("subscribe " + fid);
        return m_result;
    }
    bool showState() const override {
        note("showState");
        return m_result;
    }

private:
    void note(const std::string& call) const { fakehost::Journal::instance().note(m_name + " " + call); }

    std::string m_name;
    bool m_result;
};
