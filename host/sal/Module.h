#pragma once

#include <memory>
#include <string>

#include "IInterface.h"
#include "sal/Export.h"

class FIDParameterList;

namespace sal {

/// A driver module in this process. Made by ModuleLoader::load; whoever gets it owns it. Deleting it destroys
/// the driver and unmaps its code, with a log line when the code stays mapped and why.
///
/// IID_IFunctionID and IID_IMFDConfiguration are answered with guards round the driver's operations: an
/// exception that leaves the driver is caught there and logged with the driver ID, and the operation returns
/// false. Every other identifier is answered by the driver itself.
class SAL_API Module : public IInterface {
public:
    ~Module() override;
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    IInterface* queryInterface(unsigned int id) override;

    /// Follows the drivers of this process through their lives. Told on the thread on which it happens,
    /// before and after the guarded call; operation is "setConfiguration", "initializationCompleted",
    /// "deinitialize" or "showState". A driver is known by the ID of its setConfiguration; one that has none
    /// yet is not told of.
    class Observer {
    public:
        virtual ~Observer() = default;
        virtual void callBegins(const std::string& driverID, const char* operation) = 0;
        virtual void callEnded(const std::string& driverID, const char* operation) = 0;
        /// What the driver has answered, right before callEnded(); false also when an exception has left it.
        virtual void callReturned(const std::string& /*driverID*/, const char* /*operation*/, bool /*ok*/) {}
        /// The driver's object is gone.
        virtual void driverDeleted(const std::string& driverID) = 0;
        /// A module was not loaded: its path as the loader was given it, and why, in the loader's own words.
        virtual void loadFailed(const std::string& /*path*/, const std::string& /*reason*/) {}

        /// A FID comes to the driver, on the thread that sends it, and the driver has returned from it. ok is
        /// what it has answered, exception what has left it, else null. What the driver sends meanwhile on
        /// that thread is told in between. A FID that is refused because drivers call each other in a circle
        /// does not come to the driver.
        virtual void fidBegins(const std::string& /*driverID*/, const std::string& /*fid*/,
                               const FIDParameterList& /*parameters*/) {}
        virtual void fidEnded(const std::string& /*driverID*/, bool /*ok*/, const char* /*exception*/) {}
    };
    /// Null takes the observer out. Set at start, taken out when no other thread loads or deletes modules.
    static void setObserver(Observer* pObserver);

    /// The driver of this process in whose name the calling thread is inside the host's ISystem, or inside
    /// the IFunctionID that the driver has got from it; empty for none. Valid as long as the process.
    static const std::string& caller();

private:
    friend class ModuleLoader;
    struct Impl;
    explicit Module(std::unique_ptr<Impl> pImpl);

    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace sal
