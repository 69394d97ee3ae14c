#include "sal/CmdProcessor.h"

#include <algorithm>
#include <sstream>

#include "Console.h"
#include "FakeHost.h"

namespace sal {

template <class T>
T* SingletonDll<T>::s_pInstance = nullptr;
template class SingletonDll<CmdProcessor>;

struct CmdProcessor::Impl {
    std::vector<std::unique_ptr<CmdRegister>> records;

    CmdRegister* find(const std::string& name) const {
        for (const auto& pRecord : records) {
            if (pRecord->name() == name)
                return pRecord.get();
        }
        return nullptr;
    }
};

CmdProcessor::CmdProcessor() : m_pImpl(std::make_unique<Impl>()) {
    s_pInstance = this;
}

CmdProcessor::~CmdProcessor() {
    s_pInstance = nullptr;
}

void CmdProcessor::registerCmd(CmdRegister* pRecord) {
    m_pImpl->records.emplace_back(pRecord);
    fakehost::Console::instance().commands.push_back(pRecord);
    // After one that fails there is no processor any more.
    if (!fakehost::Journal::instance().perform("command register " + pRecord->name()))
        s_pInstance = nullptr;
}

bool CmdProcessor::execute(const std::string& line, std::ostream&) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    std::vector<std::string> arguments;
    for (std::string word; words >> word;)
        arguments.push_back(word);
    CmdRegister* pRecord = m_pImpl->find(name);
    CmdParameters parameters(arguments);
    return pRecord && pRecord->call(parameters);
}

bool CmdProcessor::help(const std::string& name, std::ostream& reply) const {
    const CmdRegister* pRecord = m_pImpl->find(name);
    if (!pRecord)
        return false;
    reply << pRecord->help();
    return true;
}

std::vector<std::string> CmdProcessor::names() const {
    std::vector<std::string> result;
    for (const auto& pRecord : m_pImpl->records)
        result.push_back(pRecord->name());
    std::sort(result.begin(), result.end());
    return result;
}

}  // namespace sal
