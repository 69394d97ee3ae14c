// Talks without a pause to each driver that MFD_TEST_TRAFFIC names (IDs with blanks between), to each on a
// thread of its own: FIDs numbered from 0, and from the first thread events "TICK" and state values "COUNT"
// with numbers as well. Hears the others' FIDs: the event "LOST" tells of the first that is missing between
// two, the state value "HEARD.<ID>" how many there were.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class Traffic : public MfdDriverBase {
public:
    ~Traffic() override { stop(); }

    /// Only notes what came: two drivers that answer each other from here could wait for each other for ever.
    bool sendFID(const std::string&, const FIDParameterList& parameters) const override {
        const std::string from = parameters.value("from");
        const int number = std::atoi(parameters.value("number").c_str());
        const std::lock_guard lock(m_mutex);
        Heard& sender = m_heard[from];
        // A driver that was loaded anew begins at 0.
        if (sender.count > 0 && number != sender.last + 1 && number != 0)
            m_missing =
                std::to_string(number) + " came from " + from + " behind " + std::to_string(sender.last);
        sender.last = number;
        ++sender.count;
        return true;
    }

    bool initializationCompleted() override {
        std::istringstream targets(std::getenv("MFD_TEST_TRAFFIC"));
        for (std::string target; targets >> target;)
            if (target != configuration().driverID)
                m_threads.emplace_back(
                    [this, target, isFirst = m_threads.empty()] { talk(target, isFirst); });
        return true;
    }
    bool deinitialize() override {
        stop();
        return true;
    }

private:
    struct Heard {
        int last = 0;
        int count = 0;
    };

    void report() const {
        std::map<std::string, Heard> heard;
        std::string missing;
        {
            const std::lock_guard lock(m_mutex);
            heard = m_heard;
            missing.swap(m_missing);
        }
        for (const auto& [from, sender] : heard)
            panelState()->setStateValueInt("HEARD." + from, sender.count);
        if (!missing.empty())
            panelState()->triggerEvent("LOST", missing);
    }

    void talk(const std::string& target, bool isFirst) const {
        for (int number = 0; !m_stopping; ++number) {
            FIDParameterList parameters;
            parameters.add("from", configuration().driverID);
            parameters.add("number", std::to_string(number));
            sendToDriver(target + ".HEAR", parameters);
            if (isFirst) {
                panelState()->triggerEvent("TICK", std::to_string(number));
                panelState()->setStateValueInt("COUNT", number);
            }
            // Not all of the processor: a reload goes on beside this.
            if (number % 50 == 49) {
                if (isFirst)
                    report();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    }
    void stop() {
        m_stopping = true;
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }

    std::atomic<bool> m_stopping = false;
    std::vector<std::thread> m_threads;
    mutable std::mutex m_mutex;
    mutable std::map<std::string, Heard> m_heard;
    mutable std::string m_missing;
};

}  // namespace

MFD_DRIVER(Traffic);
