#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "DriverCalls.h"
#include "Expect.h"
#include "MessageInput.h"
#include "MessageWriter.h"
#include "PlainReader.h"

// Whatever stands in a driver's input queue: the driver process reads inside the message, makes the same of
// it as a reader of the program's own, and of what it made, sent again, once more.

namespace {

/// The last call of a driver.
struct Call {
    std::string operation;
    int number = 0;
    std::vector<std::string> texts;
    FIDParameterList parameters;
    bool operator==(const Call&) const = default;
};

class Driver : public IFunctionID, public IMFDConfiguration {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        expect(parameters.size() <= 255, "a list has at most 255 parameters");
        return note({"SNDFDP", 0, {fid}, parameters});
    }
    bool subscribe(const std::string& fid) const override { return note({"SUBSCR", 0, {fid}, {}}); }
    bool showState() const override { return note({"SHOWST", 0, {}, {}}); }
    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        return note(
            {"SETCFG",
             workplaceId,
             {driverID, workingDirectory, ipAddress, networkAdapter, virtualPanelAddress, nvramDirectory},
             {}});
    }
    void setPanelStateInterface(IPanelState*) override { expect(false, "no message sets an interface"); }
    void setDistributorFIDInterface(IDistributorFID*) override {
        expect(false, "no message sets an interface");
    }
    void setSystemInterface(ISystem*) override { expect(false, "no message sets an interface"); }
    bool initializationCompleted() override { return note({"INTCMP", 0, {}, {}}); }
    bool deinitialize() override { return note({"DEINIT", 0, {}, {}}); }
    bool createFIDList() override { return note({"CRTFID", 0, {}, {}}); }

    mutable std::optional<Call> call;

private:
    bool note(Call made) const {
        expect(!call, "a message makes at most one call");
        for (const std::string& text : made.texts)
            expect(text.size() <= 255 && text.find('\0') == std::string::npos,
                   "a text has at most 255 bytes, none of them zero");
        call = std::move(made);
        return true;
    }
};

/// The call's number and texts as the program reads them itself.
Call readPlainly(const std::string& bytes, const Call& call) {
    PlainReader reader(bytes);
    Call read = call;
    if (call.operation == "SETCFG")
        std::memcpy(&read.number, reader.four().data(), sizeof read.number);
    for (std::string& text : read.texts)
        text = reader.text();
    return read;
}

std::optional<Call> handled(DriverCalls& sut, Driver& driver, const unsigned char* data, std::size_t size) {
    driver.call.reset();
    protocol::MessageReader message(data, size);
    const bool goesOn = sut.handle(message);
    const bool isEnd = size >= 6 && std::equal(data, data + 6, "DEINIT");
    expect(goesOn != isEnd, "the message that ends a driver ends it, and no other");
    return driver.call;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Driver driver;
    DriverCalls sut(&driver, &driver);
    for (const auto& bytes : messagesOf(data, size)) {
        if (!bytes)
            continue;
        const auto call =
            handled(sut, driver, reinterpret_cast<const unsigned char*>(bytes->data()), bytes->size());
        if (!call)
            continue;
        const std::string code = bytes->substr(0, 6);
        expect(call->operation == code, "a code makes the call of its own");
        expect(*call == readPlainly(*bytes, *call), "the driver process reads what the message holds");

        protocol::MessageWriter again(call->operation);
        if (code == "SETCFG")
            again.int32(call->number);
        for (const std::string& text : call->texts)
            again.string(text);
        if (code == "SNDFDP")
            again.parameters(call->parameters);
        if (!again.fits()) {
            // Texts that were cut off with the end of a message had no length there, and need one.
            expect(bytes->size() + call->texts.size() > protocol::maximumLength,
                   "what came whole in a message fits into one");
            continue;
        }
        const auto echo = handled(sut, driver, again.data(), again.length());
        expect(echo == call, "a call sent again is the same call");
    }
    driver.call.reset();
    sut.deinitialize();
    expect(driver.call && driver.call->operation == "DEINIT", "the driver is told to stop");
    driver.call.reset();
    sut.deinitialize();
    expect(!driver.call, "the driver is told to stop once");
    return 0;
}
