// Writes to standard error past its log, with write(2), and answers:
//   SAY value=TEXT     a line
//   HALF value=TEXT    a line without its end
//   FLOOD value=COUNT  that many lines of a kilobyte, numbered from 0
//   LOG value=TEXT     a line of its log, for comparison
//   DIE                leaves an exception uncaught
//   LATER value=FILE   once there is that file, the line "a bare one", and "a logged one" of its log
//   PING value=        sets the state PONG to the value
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

void put(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (count < 0)
            return;
        done += static_cast<std::size_t>(count);
    }
}

void fail() {
    throw std::runtime_error("no device");
}

void die() noexcept {
    fail();
}

class Talks : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        const std::string value = parameters.value("value");
        if (fid == "SAY")
            put(value + "\n");
        else if (fid == "HALF")
            put(value);
        else if (fid == "FLOOD")
            for (int i = 0; i < std::atoi(value.c_str()); ++i)
                put(std::to_string(i) + std::string(1000, '.') + "\n");
        else if (fid == "LOG")
            log(sal::LogOutput::eError, value);
        else if (fid == "LATER")
            sayLater(value);
        else if (fid == "DIE")
            die();
        else if (fid == "PING" && panelState())
            panelState()->setStateValue("PONG", value);
        return true;
    }

private:
    void sayLater(const std::string& file) const {
        for (int i = 0; i < 6000 && ::access(file.c_str(), F_OK) != 0; ++i)
            ::usleep(10'000);
        put("a bare one\n");
        log(sal::LogOutput::eError, "a logged one");
    }
};

}  // namespace

MFD_DRIVER(Talks);
