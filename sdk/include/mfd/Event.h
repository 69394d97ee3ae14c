#pragma once

#include <string>
#include <utility>

namespace mfd {

class Driver;

/// An event of a driver, as a member: mfd::Event fault{*this, "FAULT"}. Events are never merged. Any thread.
class Event {
public:
    Event(Driver& driver, std::string id) : m_driver(driver), m_id(std::move(id)) {}

    /// Tells the panel, with a text that is cut to 255 bytes. False when the driver does not run.
    bool trigger(const std::string& text = {}) const;

private:
    Driver& m_driver;
    const std::string m_id;
};

}  // namespace mfd
