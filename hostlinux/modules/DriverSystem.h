#pragma once

#include <atomic>
#include <string>

#include "IFunctionID.h"
#include "ISystem.h"

namespace sal {

/// The host's ISystem as one driver of this process is handed it: passes everything on, and has
/// Module::caller() say meanwhile in whose name the thread does so. One for each module that is loaded; none
/// ever goes, since a thread that a driver has left behind may still use it. Any thread.
class DriverSystem final : public ISystem {
public:
    /// The system outlives the drivers. Knows no driver ID yet.
    static DriverSystem& make(ISystem& system);

    void setDriverID(const std::string& driverID);

    IInterface* queryInterface(unsigned int id) override;
    void executeCommand(const std::string& command, const std::string& arguments) override;

    /// The driver in whose name the calling thread is inside the host's ISystem; empty for none.
    static const std::string& caller();

private:
    /// Its IFunctionID, likewise.
    class Sender final : public IFunctionID {
    public:
        explicit Sender(const DriverSystem& owner) : m_owner(owner) {}

        IInterface* queryInterface(unsigned int id) override;
        bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
        bool subscribe(const std::string& fid) const override;
        bool showState() const override;

        std::atomic<IFunctionID*> pTarget = nullptr;

    private:
        const DriverSystem& m_owner;
    };
    class Call;

    explicit DriverSystem(ISystem& system);

    ISystem& m_system;
    Sender m_sender;
    std::atomic<const std::string*> m_pDriverID;  ///< never null; kept for good
};

}  // namespace sal
