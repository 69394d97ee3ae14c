#include "MfdDriver.h"
#include "mfd/Driver.h"
#include "mfd/Settings.h"

class LampDriver : public mfd::Driver {
public:
    LampDriver() {
        function("BRIGHTNESS", {mfd::Parameter::integer("percent", 0, 100)},
                 [this](const mfd::Arguments& arguments) { dim(arguments.integer("percent")); });
    }

private:
    bool start() override {
        if (const std::string fault = m_settings.load(configuration().nvramDirectory); !fault.empty())
            log(sal::LogOutput::eWarning, fault);
        m_brightness = m_settings.integer("brightness", 50);
        return true;
    }

    void dim(int percent) {
        m_brightness = percent;
        m_settings.set("brightness", percent);
        if (const std::string fault = m_settings.save(); !fault.empty())
            log(sal::LogOutput::eError, fault);
        if (percent == 100)
            m_fault.trigger("too hot");
    }

    mfd::State<int> m_brightness{*this, "BRIGHTNESS"};
    const mfd::Event m_fault{*this, "FAULT"};
    mfd::Settings m_settings;
};

MFD_DRIVER(LampDriver);
