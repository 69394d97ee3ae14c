#include "sal/CmdProcessor.h"

#include <algorithm>
#include <exception>
#include <map>
#include <mutex>
#include <numeric>
#include <shared_mutex>
#include <string_view>
#include <utility>

#include "ExceptionText.h"
#include "LogLine.h"
#include "Printable.h"
#include "Words.h"
#include "sal/LogOutput.h"

namespace sal {

template <class T>
T* SingletonDll<T>::s_pInstance = nullptr;
template class SingletonDll<CmdProcessor>;

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Edit distance in any case.
std::size_t distance(std::string_view left, std::string_view right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t replaced = diagonal + (lower(left[i - 1]) == lower(right[j - 1]) ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

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

    std::vector<std::string> nearest(std::string_view word) const;
    void sayUnknown(const std::string& word, std::ostream& reply) const;
    static bool call(CmdRegister& record, CmdParameters& parameters, std::ostream& reply, bool& threw);
};

/// The known words that a slip of the finger may have meant, nearest first, at most three.
std::vector<std::string> CmdProcessor::Impl::nearest(std::string_view word) const {
    constexpr std::size_t longestWord = 64;
    std::vector<std::pair<std::size_t, std::string>> found;
    if (word.size() > longestWord)
        return {};
    for (const auto& [name, pRecord] : records) {
        const std::size_t edits = distance(word, name);
        if (edits <= std::max<std::size_t>(1, std::min(word.size(), name.size()) / 3))
            found.emplace_back(edits, name);
        else if (word.size() >= 3 && name.starts_with(word))
            found.emplace_back(edits, name);
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    for (const auto& entry : found) {
        if (names.size() == 3)
            break;
        names.push_back(entry.second);
    }
    return names;
}

void CmdProcessor::Impl::sayUnknown(const std::string& word, std::ostream& reply) const {
    reply << "unknown command \"" << base::printable(word) << '"';
    const auto names = nearest(word);
    for (std::size_t i = 0; i < names.size(); ++i)
        reply << (i == 0                  ? "; did you mean \""
                  : i + 1 == names.size() ? " or \""
                                          : ", \"")
              << names[i] << '"';
    if (!names.empty())
        reply << '?';
    else if (records.contains(std::string_view("help")))
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
