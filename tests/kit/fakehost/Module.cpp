#include "sal/Module.h"

#include <utility>

#include "Journal.h"
#include "ModuleImpl.h"

namespace sal {

Module::Module(std::unique_ptr<Impl> pImpl) : m_pImpl(std::move(pImpl)) {}

Module::~Module() {
    fakehost::Journal::instance().note("module delete " + m_pImpl->fileName);
}

IInterface* Module::queryInterface(unsigned int id) {
    fakehost::Journal::instance().note("module query " + m_pImpl->fileName + " " + std::to_string(id));
    return m_pImpl->pDriver->queryInterface(id);
}

void Module::setObserver(Observer*) {}

const std::string& Module::caller() {
    static const std::string s_nobody;
    return s_nobody;
}

}  // namespace sal
