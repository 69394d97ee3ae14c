// Records each call with its values and its driver ID ("?" as long as it has none), and acts as it is told:
// by a FID, whose function is the verb and whose parameters are "name" and "value", or inside any operation
// by MFD_TEST_ACTS, "operation|verb|name|value;...". Verbs:
//   string float int bool unset event command   the report of that kind
//   long    a state value of that many bytes    zero   one with a zero byte inside
//   burst   an int value counting up to value, with the event "name" behind each
//   threads as many threads, each of which triggers 50 events of its own name
//   send    the FID "name" with the further parameters   syssend   the same through the host's sender
//   wait    until the file "name" is there     throw   an exception     fail   the operation returns false
// A verb that was not refused is recorded as "did VERB", else as "did VERB, refused".
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "HangGuard.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class Puppet : public MfdDriverBase {
public:
    ~Puppet() override { record("destroyed"); }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::ostringstream line;
        line << fid << (parameters.empty() ? "" : " ") << parameters;
        const bool result = perform("sendFID", line.str());
        return act(fid, parameters.value("name"), parameters.value("value"), parameters) && result;
    }
    bool subscribe(const std::string& fid) const override { return perform("subscribe", fid); }
    bool showState() const override { return perform("showState"); }

    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        MfdDriverBase::setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                        virtualPanelAddress, nvramDirectory);
        return perform("setConfiguration", std::to_string(workplaceId) + "|" + driverID + "|" +
                                               workingDirectory + "|" + ipAddress + "|" + networkAdapter +
                                               "|" + virtualPanelAddress + "|" + nvramDirectory);
    }
    void setPanelStateInterface(IPanelState* pPanelState) override {
        MfdDriverBase::setPanelStateInterface(pPanelState);
        perform("setPanelStateInterface", pPanelState ? "set" : "null");
    }
    void setDistributorFIDInterface(IDistributorFID* pDistributorFID) override {
        MfdDriverBase::setDistributorFIDInterface(pDistributorFID);
        perform("setDistributorFIDInterface", pDistributorFID ? "set" : "null");
    }
    void setSystemInterface(ISystem* pSystem) override {
        MfdDriverBase::setSystemInterface(pSystem);
        perform("setSystemInterface", pSystem ? "set" : "null");
    }
    bool initializationCompleted() override { return perform("initializationCompleted"); }
    bool deinitialize() override { return perform("deinitialize"); }
    bool createFIDList() override { return perform("createFIDList"); }

private:
    bool perform(const std::string& operation, const std::optional<std::string>& values = {}) const {
        record(operation + (values ? " " + *values : ""));
        bool result = true;
        const char* pActs = std::getenv("MFD_TEST_ACTS");
        std::istringstream acts(pActs ? pActs : "");
        for (std::string text; std::getline(acts, text, ';');) {
            std::istringstream fields(text);
            std::string of;
            std::string verb;
            std::string name;
            std::string value;
            std::getline(fields, of, '|');
            std::getline(fields, verb, '|');
            std::getline(fields, name, '|');
            std::getline(fields, value, '|');
            if (of == operation)
                result = act(verb, name, value, FIDParameterList()) && result;
        }
        return result;
    }

    bool act(const std::string& verb, const std::string& name, const std::string& value,
             const FIDParameterList& parameters) const {
        bool result = true;
        if (verb == "string")
            panelState()->setStateValue(name, value);
        else if (verb == "float")
            panelState()->setStateValueFloat(name, std::strtof(value.c_str(), nullptr));
        else if (verb == "int")
            panelState()->setStateValueInt(name, std::atoi(value.c_str()));
        else if (verb == "bool")
            panelState()->setStateValueBool(name, value == "true");
        else if (verb == "unset")
            panelState()->unsetStateValue(name);
        else if (verb == "event")
            panelState()->triggerEvent(name, value);
        else if (verb == "command")
            system()->executeCommand(name, value);
        else if (verb == "long")
            panelState()->setStateValue(name, std::string(std::strtoul(value.c_str(), nullptr, 10), 'v'));
        else if (verb == "zero")
            panelState()->setStateValue(name, std::string("a\0b", 3));
        else if (verb == "burst")
            burst(name, std::atoi(value.c_str()));
        else if (verb == "threads")
            triggerOnThreads(std::atoi(value.c_str()));
        else if (verb == "send")
            result = sendToDriver(name, further(parameters));
        else if (verb == "syssend")
            result = dynamic_cast<IFunctionID&>(*system()->queryInterface(IID_IFunctionID))
                         .sendFID(name, further(parameters));
        else if (verb == "wait")
            result = waitFor(name);
        else if (verb == "throw")
            throw std::runtime_error("thrown on purpose");
        else
            return verb != "fail";
        record("did " + verb + (result ? "" : ", refused"));
        return result;
    }

    void burst(const std::string& name, int count) const {
        for (int value = 1; value <= count; ++value) {
            panelState()->setStateValueInt(name, value);
            panelState()->triggerEvent(name, std::to_string(value));
        }
    }

    void triggerOnThreads(int count) const {
        std::vector<std::thread> threads;
        for (int number = 0; number < count; ++number)
            threads.emplace_back([this, number] {
                for (int value = 0; value < 50; ++value)
                    panelState()->triggerEvent("T" + std::to_string(number), std::to_string(value));
            });
        for (std::thread& thread : threads)
            thread.join();
    }

    static bool waitFor(const std::string& file) {
        return eventually([&] { return std::filesystem::exists(file); }, std::chrono::milliseconds(2));
    }

    static FIDParameterList further(const FIDParameterList& parameters) {
        FIDParameterList rest;
        for (const auto& [name, value] : parameters)
            if (name != "name")
                rest.add(name, value);
        return rest;
    }

    void record(const std::string& line) const {
        std::string text = configuration().driverID.empty() ? "?" : configuration().driverID;
        for (const char byte : " " + line)
            text += byte == '\0' ? "\\0" : byte == '\n' ? "\\n" : std::string(1, byte);
        recordLine(text);
    }
};

}  // namespace

MFD_DRIVER(Puppet);
