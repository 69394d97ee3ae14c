#pragma once

#include <string>

#include "IDistributorFID.h"
#include "Journal.h"
#include "RecordingParameters.h"

/// A FID distributor that notes what it is to dispatch.
class RecordingDistributorFID : public IDistributorFID {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    void dispatchFID(const std::string& fid, const FIDParameterList& parameters) const override {
        fakehost::Journal::instance().note("distributor dispatchFID " + fid + " " + recorded(parameters));
    }
};
