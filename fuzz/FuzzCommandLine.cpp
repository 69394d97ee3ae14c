#include <sstream>

#include "Expect.h"
#include "FakeHost.h"
#include "MDMFidDistributor.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "Silence.h"
#include "Words.h"
#include "sal/CmdRegisterImpl.h"

// Whatever is typed at the console: it is split into the words that a second splitter finds, which are found
// again when they are quoted, and what "sendFID" made of them, typed again in its plainest form, is the same
// FID.

namespace {

class MacroSystem : public RecordingMacroSystem {
public:
    void fidDispatched(const std::string& fid, const FIDParameterList& parameters) override {
        ++count;
        lastFid = fid;
        lastParameters = parameters;
    }

    int count = 0;
    std::string lastFid;
    FIDParameterList lastParameters;
};

struct Console {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    MacroSystem macros;
    MDMFidDistributor distributor;

    Console() {
        distributor.setPanelStateInterface(&panel);
        distributor.setMacroSystem(&macros);
        distributor.addDriverPort("A", nullptr);
        add("setStateValue", &MDMFidDistributor::shellCmdSetStateValue);
        add("unsetStateValue", &MDMFidDistributor::shellCmdUnsetStateValue);
        add("triggerEvent", &MDMFidDistributor::shellCmdTriggerEvent);
        add("sendFID", &MDMFidDistributor::shellCmdSendFID);
    }
    void add(const std::string& name, bool (MDMFidDistributor::*handler)(sal::CmdParameters&)) {
        sal::SingletonDll<sal::CmdProcessor>::getInstance()->registerCmd(
            new sal::CmdRegisterImpl<MDMFidDistributor>(name, "usage\n\twhat it does", &distributor,
                                                        handler));
    }
    bool type(const std::string& line) {
        macros.count = 0;
        std::ostringstream reply;
        const bool result = sal::SingletonDll<sal::CmdProcessor>::getInstance()->execute(line, reply);
        expect(result || !reply.str().empty(), "a line that is not executed is answered");
        return result;
    }
};

/// The words of a line by another way, which base::splitWords() must agree with; none for a line that is
/// wrong.
std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool isInWord = false;
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == '\'') {
            if (c == quote)
                quote = 0;
            else
                word += c;
        } else if (c == '\\') {
            if (i + 1 == line.size())
                return {};
            // Inside double quotes a backslash escapes only what is special there.
            const char next = line[i + 1];
            if (quote && next != '"' && next != '\\') {
                word += c;
            } else {
                word += next;
                ++i;
            }
            isInWord = true;
        } else if (quote) {
            if (c == quote)
                quote = 0;
            else
                word += c;
        } else if (c == '"' || c == '\'') {
            quote = c;
            isInWord = true;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f') {
            if (isInWord)
                words.push_back(word);
            word.clear();
            isInWord = false;
        } else if (c == '#' && words.empty() && !isInWord) {
            return {};
        } else {
            word += c;
            isInWord = true;
        }
    }
    if (quote)
        return {};
    if (isInWord)
        words.push_back(word);
    return words;
}

std::string quoted(const std::string& text) {
    std::string word = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            word += '\\';
        word += c;
    }
    return word + '"';
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Console s_console;
    const std::string line(reinterpret_cast<const char*>(data), size);
    s_console.host.journal().clear();

    const std::size_t first = line.find_first_not_of(" \t\n\r\v\f");
    const bool isCommand = first != std::string::npos && line[first] != '#';
    const base::Words split = base::splitWords(line);
    const std::vector<std::string>& words = split.words;
    expect(words == wordsOf(line), "both splitters find the same words");
    expect(split.error.empty() || (isCommand && words.empty()),
           "what is wrong is a command, and has no words");
    std::string again;
    for (const std::string& word : words)
        again += quoted(word) + ' ';
    expect(base::splitWords(again).words == words, "words in quotes are the same words");

    s_console.type(line);
    const bool isSent = !words.empty() && words[0] == "sendFID" && words.size() > 1 &&
                        !(words.size() == 2 && words[1] == "--help");
    expect(s_console.macros.count == (isSent ? 1 : 0),
           "sendFID with a FID, and no other line, sends one FID");
    if (!isSent)
        return 0;

    const std::string fid = s_console.macros.lastFid;
    const FIDParameterList parameters = s_console.macros.lastParameters;
    expect(fid == words[1], "the first word is the FID");
    expect(parameters.size() <= words.size() - 2, "each parameter takes a word at least");
    if (fid == "--help")
        return 0;
    std::string plain = "sendFID " + quoted(fid);
    for (const auto& [name, value] : parameters) {
        expect(name.find('=') == std::string::npos, "no name has an equals sign");
        plain += ' ' + quoted(name + '=') + ' ' + quoted(value);
    }
    expect(s_console.type(plain) && s_console.macros.count == 1, "the plain form is sent");
    expect(s_console.macros.lastFid == fid && s_console.macros.lastParameters == parameters,
           "the plain form means the same");
    return 0;
}
