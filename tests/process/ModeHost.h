#pragma once

#include <bit>
#include <cstdint>
#include <functional>
#include <string>

#include "DriverHost.h"

/// A host of drivers in both modes: notes what they report, floats as their bits, and lets them send through
/// the manager.
class ModeHost : public DriverHost {
public:
    IInterface* pSender = nullptr;                        ///< the manager's IFunctionID
    std::function<void(const std::string&)> onStateText;  ///< before a text value is noted, with its key

    IInterface* queryInterface(unsigned int id) override { return id == IID_IFunctionID ? pSender : nullptr; }
    void setStateValue(const std::string& stateID, const std::string& value) override {
        if (onStateText)
            onStateText(stateID);
        DriverHost::setStateValue(stateID, value);
    }
    void setStateValueFloat(const std::string& stateID, float value) override {
        calls.add(stateID + " float " + hexadecimal(std::bit_cast<std::uint32_t>(value)));
    }

    static std::string hexadecimal(std::uint32_t bits) {
        std::string text;
        for (int shift = 28; shift >= 0; shift -= 4)
            text += "0123456789abcdef"[bits >> shift & 15U];
        return text;
    }
};
