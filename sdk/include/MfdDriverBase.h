#pragma once

#include <iostream>
#include <string>

#include "FIDParameterList.h"
#include "FunctionTable.h"
#include "IDistributorFID.h"
#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "InterfaceIds.h"
#include "mfd/LogPresence.h"
#include "sal/LogManager.h"

/// What most drivers share: keeps the configuration and the interfaces that the loader hands in, answers both
/// driver interfaces, and does nothing for the rest. A driver overrides sendFID (callFunction
/// helps) and, to work of its own
/// accord, initializationCompleted and deinitialize (which stops all threads before it returns).
class MfdDriverBase : public IFunctionID, public IMFDConfiguration {
public:
    IInterface* queryInterface(unsigned int id) override {
        switch (id) {
            case IID_IFunctionID:
                return static_cast<IFunctionID*>(this);
            case IID_IMFDConfiguration:
                return static_cast<IMFDConfiguration*>(this);
            default:
                return nullptr;
        }
    }

    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        m_configuration = {workplaceId,         driverID,      workingDirectory, ipAddress, networkAdapter,
                           virtualPanelAddress, nvramDirectory};
        return true;
    }
    void setPanelStateInterface(IPanelState* pPanelState) override { m_pPanelState = pPanelState; }
    void setDistributorFIDInterface(IDistributorFID* pDistributorFID) override {
        m_pDistributorFID = pDistributorFID;
    }
    void setSystemInterface(ISystem* pSystem) override { m_pSystem = pSystem; }
    bool initializationCompleted() override { return true; }
    bool deinitialize() override { return true; }
    bool createFIDList() override { return true; }

protected:
    struct Configuration {
        int workplaceId = 0;
        std::string driverID;
        std::string workingDirectory;
        std::string ipAddress;
        std::string networkAdapter;
        std::string virtualPanelAddress;
        std::string nvramDirectory;
    };
    const Configuration& configuration() const { return m_configuration; }

    /// Null until the loader has handed it in.
    IPanelState* panelState() const { return m_pPanelState; }
    ISystem* system() const { return m_pSystem; }

    /// Sends a whole FID ("PANEL.ALARM") to another driver, in both modes. Any thread until deinitialize()
    /// returns; waits while the queue is full. False when there is no way to send, the FID is too long for a
    /// message, or the queue refused it. What it returns does not say whether the other driver took it.
    bool sendToDriver(const std::string& fid, const FIDParameterList& parameters) const {
        // The host's sender first: a distributor does not tell what became of a FID.
        if (m_pSystem) {
            if (auto* pSender = dynamic_cast<IFunctionID*>(m_pSystem->queryInterface(IID_IFunctionID)))
                return pSender->sendFID(fid, parameters);
        }
        if (!m_pDistributorFID)
            return false;
        m_pDistributorFID->dispatchFID(fid, parameters);
        return true;
    }

    /// Does what the table says for a FID, for sendFID(). Any thread. False with a warning in the log, which
    /// says what would be right, when the table does not have the FID or a parameter is missing that it
    /// needs; else what the driver's operation returns.
    template <class Driver>
    bool callFunction(const mfd::FunctionTable<Driver>& functions, const std::string& fid,
                      const FIDParameterList& parameters) const {
        const auto* pFunction = functions.find(fid);
        if (!pFunction) {
            log(sal::LogOutput::eWarning, mfd::unknownFunctionText(fid, functions.names()));
            return false;
        }
        for (const char* parameter : pFunction->needed) {
            if (parameters.value(parameter).empty()) {
                log(sal::LogOutput::eWarning, fid + " ignored, it needs the parameter \"" + parameter + "\"");
                return false;
            }
        }
        return (static_cast<const Driver&>(*this).*pFunction->handler)(parameters);
    }

    /// Writes one line to the log output named after the driver ID, so that the line tells whose it is; to
    /// standard error where the program has no log, as a test of the driver alone. Any thread, once the
    /// configuration is there.
    void log(sal::LogOutput::ELevel level, const std::string& text) const {
        sal::LogOutput* pLog = mfd::LogPresence::isThere()
                                   ? sal::LogManager::getInstance()->getLogOutput(m_configuration.driverID)
                                   : nullptr;
        if (pLog)
            pLog->level(level) << text << std::endl;
        else
            std::cerr << m_configuration.driverID + ": " + text + "\n" << std::flush;
    }

private:
    Configuration m_configuration;
    IPanelState* m_pPanelState = nullptr;
    IDistributorFID* m_pDistributorFID = nullptr;
    ISystem* m_pSystem = nullptr;
};
