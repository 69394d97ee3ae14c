#include "mfd/Event.h"

#include "mfd/Driver.h"
#include "mfd/Text.h"

namespace mfd {

bool Event::trigger(const std::string& text) const {
    return m_driver.toPanel([&](IPanelState& panel) { panel.triggerEvent(m_id, fittingText(text)); });
}

}  // namespace mfd
