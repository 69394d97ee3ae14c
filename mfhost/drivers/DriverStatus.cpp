#include "DriverStatus.h"

#include "DriverStates.h"
#include "QueueNames.h"

const char* inWords(EInterfaceTypes type) {
    switch (type) {
        case EInterfaceTypes::Direct:
            return "direct";
        case EInterfaceTypes::Queue:
            return "queue";
        case EInterfaceTypes::Socket:
            return "socket";
        default:
            return "none";
    }
}

std::string driverStatus(const DriverTable::Driver& driver,
                         const std::vector<sal::MessageQueue::Status>& queues) {
    switch (driver.state) {
        case EDriverState::Running:
            return driver.isByHand ? "running (by hand)" : "running";
        case EDriverState::Waiting:
        case EDriverState::Due:
        case EDriverState::Ended:
            if (!driver.isByHand)
                return "ended";
            break;
        case EDriverState::NotLoaded:
            break;
        default:
            return inWords(driver.state);
    }
    // Queues without a process of the host's own: the process is started by hand.
    for (const auto& queue : queues) {
        if (queue.name == protocol::inputQueue(driver.id))
            return queue.receiverAttached ? "running (by hand)" : "waiting for its process";
    }
    return "not loaded";
}
