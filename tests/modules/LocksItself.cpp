// Keeps its lock while it sends to itself, so that PING never returns: in the host's process the FID that it
// sends arrives on the same thread, which waits for itself.
//   PING             sends PONG to itself
//   PONG, any other  takes the lock
#include <mutex>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class LocksItself : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        const std::lock_guard lock(m_mutex);
        return fid == "PING" ? sendToDriver(configuration().driverID + ".PONG", parameters) : true;
    }

private:
    mutable std::mutex m_mutex;
};

}  // namespace

MFD_DRIVER(LocksItself);
