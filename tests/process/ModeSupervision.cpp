#include "ModeSupervision.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "sal/MessageQueue.h"
#include "sal/Process.h"

std::unique_ptr<ModeSupervision> ModeSupervision::asAsked() {
    const char* pSetting = std::getenv("MFD_TEST_START_WAIT");
    if (!pSetting)
        return nullptr;
    const std::string setting = pSetting;
    if (setting != "second" && setting != "attached")
        throw std::runtime_error("MFD_TEST_START_WAIT=" + setting + " is neither second nor attached");
    return std::make_unique<ModeSupervision>(setting == "attached");
}

ModeSupervision::ModeSupervision(bool waitsUntilAttached)
    : m_drivers(m_store),
      m_supervisor(m_drivers,
                   {.hangTimeout = std::chrono::milliseconds(0), .waitsUntilAttached = waitsUntilAttached},
                   {.activity = [] { return CommandActivity(); },
                    .queues = [] { return sal::MessageQueue::statuses(); },
                    .receiverGone = &sal::MessageQueue::receiverGone,
                    .exitNow = [](int) {},
                    .restart = nullptr}) {
    m_supervisor.start();
    sal::Process::setObserver(&m_supervisor);
}

ModeSupervision::~ModeSupervision() {
    sal::Process::setObserver(nullptr);
}
