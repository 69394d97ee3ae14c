#include <sstream>

#include "Expect.h"
#include "FakeHost.h"
#include "IPanelState.h"
#include "MDMModuleHandler.h"
#include "MemoryFile.h"
#include "NestingDepth.h"
#include "Silence.h"
#include "XmlDocument.h"
#include "XmlInput.h"

// Whatever lies in a module directory: what XmlInput lets through is read without harm, published
// whole and counted, and the scan returns to where it came from.

namespace {

class Panel : public IPanelState {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    void setStateValue(const std::string&, const std::string&) override { ++values; }
    void setStateValueFloat(const std::string&, float) override { unexpected(); }
    void setStateValueInt(const std::string& stateID, int value) override {
        expect(stateID == "PANEL.MFDDEF.COUNT", "the catalogue is counted under its key");
        count = value;
    }
    void setStateValueBool(const std::string&, bool) override { unexpected(); }
    void unsetStateValue(const std::string&) override { unexpected(); }
    void triggerEvent(const std::string&, const std::string&) override { unexpected(); }

    int values = 0;
    int count = -1;

private:
    static void unexpected() { expect(false, "a scan publishes texts and their number only"); }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fakehost::FakeHost s_host;
    static const MemoryFile s_file;
    s_host.journal().reset();
    s_host.makeDirectory("/mods");
    s_file.write(data, size);
    if (!XmlInput::refusal(s_file.path()).empty())
        return 0;
    TiXmlDocument document(s_file.path());
    static_cast<void>(loadXmlDocument(document));
    expect(nestingDepth(document) <= XmlInput::s_maxDepth, "no file is let through that nests too deep");
    s_host.fileLists["/mods"] = {s_file.path()};

    Panel panel;
    MDMModuleHandler sut;
    sut.init();
    sut.setPanelStateInterface(&panel);
    sut.searchMfDriver("/mods");
    expect(panel.count >= 0 && panel.values == 4 * panel.count, "each entry is published with four texts");
    sut.searchMfDriver("/mods");
    expect(panel.count % 2 == 0 && panel.values == 6 * panel.count, "a second scan finds the same again");
    expect(s_host.workingDirectory == "/wp", "the scan returns to the working directory");
    sut.showModules();
    return 0;
}
