// From initializationCompleted to deinitialize a thread reports the state value "COUNT" and the event "TICK"
// without a pause.
#include <atomic>
#include <string>
#include <thread>

#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class FloodsState : public MfdDriverBase {
public:
    ~FloodsState() override { stop(); }

    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
    bool initializationCompleted() override {
        m_running = true;
        m_thread = std::thread([this] {
            for (int count = 0; m_running; ++count) {
                panelState()->setStateValueInt("COUNT", count);
                panelState()->triggerEvent("TICK", std::to_string(count));
            }
        });
        return true;
    }
    bool deinitialize() override {
        stop();
        return recordLine("deinitialize");
    }

private:
    void stop() {
        m_running = false;
        if (m_thread.joinable())
            m_thread.join();
    }

    std::atomic<bool> m_running = false;
    std::thread m_thread;
};

}  // namespace

MFD_DRIVER(FloodsState);
