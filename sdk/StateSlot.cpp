#include "mfd/StateSlot.h"

#include <stdexcept>
#include <utility>

#include "mfd/Driver.h"
#include "mfd/Text.h"

namespace mfd {

StateSlot::StateSlot(Driver& driver, std::string id) : m_driver(driver), m_id(std::move(id)) {
    if (m_id.empty() || m_id.size() > s_longestText)
        throw std::logic_error("a state needs an ID of 1 to 255 bytes");
    m_driver.add(*this);
}

StateSlot::~StateSlot() = default;

void StateSlot::report() {
    std::lock_guard lock(m_mutex);
    if (m_isReported)
        tellPanel();
}

void StateSlot::tellPanel() {
    m_isReported = m_driver.toPanel([this](IPanelState& panel) { tell(panel); });
}

void StateSlot::begin() {
    std::lock_guard lock(m_mutex);
    m_isReported = false;
    if (hasValue())
        tellPanel();
}

}  // namespace mfd
