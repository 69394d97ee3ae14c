// Records each call with its values, a line each: in the file that MFD_TEST_RECORD names, else in
// "record.txt" in its NVRAM directory (what comes before setConfiguration is kept until then).
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>

#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class Recorder : public MfdDriverBase {
public:
    ~Recorder() override { record("destroyed"); }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::ostringstream line;
        line << "sendFID " << fid << (parameters.empty() ? "" : " ") << parameters;
        return record(line.str());
    }
    bool subscribe(const std::string& fid) const override { return record("subscribe " + fid); }
    bool showState() const override { return record("showState"); }

    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        MfdDriverBase::setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                        virtualPanelAddress, nvramDirectory);
        return record("setConfiguration " + std::to_string(workplaceId) + "|" + driverID + "|" +
                      workingDirectory + "|" + ipAddress + "|" + networkAdapter + "|" + virtualPanelAddress +
                      "|" + nvramDirectory);
    }
    void setPanelStateInterface(IPanelState* pPanelState) override {
        MfdDriverBase::setPanelStateInterface(pPanelState);
        record(std::string("setPanelStateInterface ") + (pPanelState ? "set" : "null"));
    }
    void setDistributorFIDInterface(IDistributorFID* pDistributorFID) override {
        MfdDriverBase::setDistributorFIDInterface(pDistributorFID);
        record(std::string("setDistributorFIDInterface ") + (pDistributorFID ? "set" : "null"));
    }
    void setSystemInterface(ISystem* pSystem) override {
        MfdDriverBase::setSystemInterface(pSystem);
        record(std::string("setSystemInterface ") + (pSystem ? "set" : "null"));
    }
    bool initializationCompleted() override { return record("initializationCompleted"); }
    bool deinitialize() override { return record("deinitialize"); }
    bool createFIDList() override { return record("createFIDList"); }

private:
    bool record(const std::string& line) const {
        if (recordLine(line))
            return true;
        const std::lock_guard lock(m_mutex);
        m_pending += line + "\n";
        if (configuration().nvramDirectory.empty())
            return true;
        std::ofstream file(configuration().nvramDirectory + "/record.txt", std::ios::app);
        file << m_pending << std::flush;
        m_pending.clear();
        return file.good();
    }

    mutable std::mutex m_mutex;
    mutable std::string m_pending;  ///< lines that no file has taken yet
};

}  // namespace

MFD_DRIVER(Recorder);
