#include <cstring>
#include <map>
#include <utility>

#include "Expect.h"
#include "FIDParameterList.h"
#include "IDistributorFID.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "MDMDriverIPCI.h"
#include "MessageFeed.h"
#include "MessageInput.h"
#include "MfDriverManager.h"
#include "PlainReader.h"

// Whatever a driver process writes into its output queue: the proxy reads inside the message, loses nothing
// and keeps the order. What must arrive is told by a reader of the
// program's own.

namespace {

/// What has arrived, or must: everything that is never merged in its order, and the last value under each
/// name.
struct Arrivals {
    std::vector<std::string> events;
    std::map<std::pair<std::string, std::string>, std::string> values;

    void event(const std::string& kind, const std::string& first, const std::string& second) {
        events.push_back(kind + '\n' + first + '\n' + second);
    }
    void value(const std::string& kind, const std::string& name, const std::string& text) {
        values[{kind, name}] = text;
    }
    bool operator==(const Arrivals&) const = default;
};

template <class T>
std::string bytesOf(T value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

class Receiver : public IPanelState, public IDistributorFID, public ISystem {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    void setStateValue(const std::string& stateID, const std::string& value) override {
        arrivals.value("SETVAL", plain(stateID), plain(value));
    }
    void setStateValueFloat(const std::string& stateID, float value) override {
        arrivals.value("SETVAF", plain(stateID), bytesOf(value));
    }
    void setStateValueInt(const std::string& stateID, int value) override {
        arrivals.value("SETVAI", plain(stateID), bytesOf(value));
    }
    void setStateValueBool(const std::string& stateID, bool value) override {
        arrivals.value("SETVAB", plain(stateID), value ? "true" : "false");
    }
    void unsetStateValue(const std::string& stateID) override {
        arrivals.value("UNSVAL", plain(stateID), {});
    }
    void triggerEvent(const std::string& eventID, const std::string& value) override {
        arrivals.event("TRIGGR", plain(eventID), plain(value));
    }
    void executeCommand(const std::string& command, const std::string& arguments) override {
        arrivals.event("SYSCMD", plain(command), plain(arguments));
    }
    void dispatchFID(const std::string& fid, const FIDParameterList& parameters) const override {
        for (const auto& [name, value] : parameters) {
            plain(name);
            plain(value);
        }
        arrivals.event("DSPFID", plain(fid), std::to_string(parameters.size()));
    }

    mutable Arrivals arrivals;

private:
    static const std::string& plain(const std::string& text) {
        expect(text.size() <= 255 && text.find('\0') == std::string::npos,
               "a text has at most 255 bytes, none of them zero");
        return text;
    }
};

/// What one message must do.
void expectFrom(const std::string& bytes, Arrivals& arrivals) {
    PlainReader reader(bytes);
    const std::string code = reader.code();
    if (code == "SETVAL" || code == "TRIGGR" || code == "SYSCMD") {
        const std::string first = reader.text();
        const std::string second = reader.text();
        if (code == "SETVAL")
            arrivals.value(code, first, second);
        else
            arrivals.event(code, first, second);
    } else if (code == "SETVAF" || code == "SETVAI") {
        const std::string name = reader.text();
        arrivals.value(code, name, reader.four());
    } else if (code == "SETVAB") {
        const std::string name = reader.text();
        arrivals.value(code, name, reader.byte() != 0 ? "true" : "false");
    } else if (code == "DSPFID") {
        const std::string name = reader.text();
        arrivals.event(code, name, std::to_string(reader.byte()));
    } else if (code == "UNSVAL") {
        arrivals.value(code, reader.text(), {});
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    g_debugStartMFDProcess = false;
    Arrivals expected;
    MessageFeed& feed = MessageFeed::instance();
    for (auto& message : messagesOf(data, size)) {
        if (message)
            expectFrom(*message, expected);
        feed.messages.push_back(std::move(message));
    }

    Receiver receiver;
    MDMDriverIPCI sut("/mods/libA.so", "A");
    sut.setPanelStateInterface(&receiver);
    sut.setDistributorFIDInterface(&receiver);
    sut.setSystemInterface(&receiver);
    expect(sut.init(), "the proxy starts");
    feed.onEnd = [&] { sut.deinitialize(); };
    sut.run();
    expect(feed.messages.empty(), "every message is taken");
    expect(receiver.arrivals.events == expected.events, "events, FIDs and commands arrive once and in order");
    expect(receiver.arrivals.values == expected.values, "the last value under each name arrives");
    return 0;
}
