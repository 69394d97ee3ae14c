#pragma once

#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "mfd/StateSlot.h"
#include "mfd/Text.h"

namespace mfd {

/// A state value of a driver, of type bool, int, float, double (shown as a float) or std::string, as a member
/// that is made with the driver and the ID: mfd::State<bool> lit{*this, "LIT", false}. Setting it reports it
/// as DRIVER.LIT when it has changed, report() also when it has not. What is set before the driver begins is
/// reported then; what is set after deinitialize() is kept from the panel. A text is cut to 255 bytes. Any
/// thread.
template <class Type>
class State : public StateSlot {
    static_assert(std::is_same_v<Type, bool> || std::is_same_v<Type, int> || std::is_same_v<Type, float> ||
                      std::is_same_v<Type, double> || std::is_same_v<Type, std::string>,
                  "a state is a bool, an int, a float, a double or a std::string");

public:
    State(Driver& driver, std::string id) : StateSlot(driver, std::move(id)) {}
    State(Driver& driver, std::string id, Type first)
        : StateSlot(driver, std::move(id)), m_value(std::move(first)) {}

    State& operator=(Type value) {
        set(std::move(value));
        return *this;
    }
    /// Nothing in the place of a value is the same as unset().
    void set(std::optional<Type> value) {
        std::lock_guard lock(m_mutex);
        if (m_isReported && m_value == value)
            return;
        m_value = std::move(value);
        tellPanel();
    }
    /// The value is not known any more, that of a device that was lost say.
    void unset() { set(std::nullopt); }
    /// Sets the value and tells the panel though it is the one that was told last: who watches sees that it
    /// has been measured anew. A host may merge it with others that come as fast.
    void report(std::optional<Type> value) {
        std::lock_guard lock(m_mutex);
        m_value = std::move(value);
        tellPanel();
    }
    using StateSlot::report;
    /// What was set last; nothing when that is not known.
    std::optional<Type> value() const {
        std::lock_guard lock(m_mutex);
        return m_value;
    }

private:
    bool hasValue() const override { return m_value.has_value(); }
    void tell(IPanelState& panel) const override {
        if (!m_value)
            panel.unsetStateValue(id());
        else if constexpr (std::is_same_v<Type, bool>)
            panel.setStateValueBool(id(), *m_value);
        else if constexpr (std::is_same_v<Type, int>)
            panel.setStateValueInt(id(), *m_value);
        else if constexpr (std::is_same_v<Type, std::string>)
            panel.setStateValue(id(), fittingText(*m_value));
        else
            panel.setStateValueFloat(id(), static_cast<float>(*m_value));
    }

    std::optional<Type> m_value;
};

}  // namespace mfd
