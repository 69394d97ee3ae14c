#include "sal/CmdProcessor.h"

#include <exception>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <utility>

#include "ExceptionText.h"
#include "LogLine.h"
#include "Nearest.h"
#include "Printable.h"
#include "Words.h"
#include "sal/LogOutput.h"

namespace sal {

template <class T>
T* SingletonDll<T>::s_pInstance = nullptr;
template class SingletonDll<CmdProcessor>;

namespace {

/// "usage<line feed><tab>what it does" on one line.
std::string onOneLine(std::string_view help) {
    std::string line;
    bool broken = false;
    for (const char c : help) {
        if (c == '\n' || (broken && (c == '\t' || c == ' '))) {
            broken = true;
            continue;
        }
        if (std::exchange(broken, false))
            line += line.empty() ? "" : ": ";
        line += c;
    }
    return line;
}

}  // namespace

struct CmdProcessor::Impl {
    std::map<std::string, std::unique_ptr<CmdRegister>, std::less<>> records;
    /// Guards them against threads that only ask for help or names; a record that is called stays anyway.
    mutable std::shared_mutex mutex;

    void sayUnknown(const std::string& word, std::ostream& reply) const;
    static bool call(CmdRegister& record, CmdParameters& parameters, std::ostream& reply, bool& threw);
};

void CmdProcessor::Impl::sayUnknown(const std::string& word, std::ostream& reply) const {
    std::vector<std::string> names;
    for (const auto& [name, pRecord] : records)
        names.push_back(name);
    names = base::nearest(word, names);
    reply << "unknown command \"" << base::printable(word) << '"' << base::didYouMeanQuoted(names);
    if (names.empty() && records.contains(std::string_view("help")))
        reply << "; \"help\" lists all commands";
    reply << std::endl;
}

bool CmdProcessor::Impl::call(CmdRegister& record, CmdParameters& parameters, std::ostream& reply,
                              bool& threw) {
    threw = true;
    std::string reason;
    try {
        const bool result = record.call(parameters);
        threw = false;
        return result;
    } catch (const std::exception& e) {
        reason = exceptionText(e);
    } catch (...) {
        if (isThreadEnding())
            throw;
        reason = currentExceptionText();
    }
    reply << record.name() << " failed: " << base::printable(reason) << std::endl;
    logLine("COMMAND", LogOutput::eError, record.name() + " failed: " + reason);
    return false;
}

CmdProcessor::CmdProcessor() : m_pImpl(std::make_unique<Impl>()) {
    SAL_ASSERT(!s_pInstance);
    s_pInstance = this;
}

CmdProcessor::~CmdProcessor() {
    s_pInstance = nullptr;
}

void CmdProcessor::registerCmd(CmdRegister* pRecord) {
    SAL_ASSERT(pRecord);
    const std::lock_guard lock(m_pImpl->mutex);
    m_pImpl->records[pRecord->name()].reset(pRecord);
}

bool CmdProcessor::execute(const std::string& line, std::ostream& reply) {
    base::Words command = base::splitWords(line);
    if (!command.error.empty()) {
        reply << command.error << std::endl;
        return false;
    }
    if (command.words.empty())
        return true;
    const std::string name = command.words.front();
    const auto found = m_pImpl->records.find(name);
    if (found == m_pImpl->records.end()) {
        m_pImpl->sayUnknown(name, reply);
        return false;
    }
    command.words.erase(command.words.begin());
    if (command.words.size() == 1 && command.words.front() == "--help")
        return help(name, reply);

    CmdParameters parameters(std::move(command.words));
    bool threw = false;
    const bool result = Impl::call(*found->second, parameters, reply, threw);
    if (!result && !threw)
        help(name, reply);
    return result;
}

bool CmdProcessor::help(const std::string& name, std::ostream& reply) const {
    const std::shared_lock lock(m_pImpl->mutex);
    if (name.empty()) {
        for (const auto& [word, pRecord] : m_pImpl->records)
            reply << onOneLine(pRecord->help()) << std::endl;
        return true;
    }
    const auto found = m_pImpl->records.find(name);
    if (found == m_pImpl->records.end()) {
        m_pImpl->sayUnknown(name, reply);
        return false;
    }
    reply << found->second->help() << std::endl;
    return true;
}

std::vector<std::string> CmdProcessor::names() const {
    std::vector<std::string> names;
    const std::shared_lock lock(m_pImpl->mutex);
    for (const auto& [name, pRecord] : m_pImpl->records)
        names.push_back(name);
    return names;
}

}  // namespace sal
