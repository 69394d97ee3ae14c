// A driver of the kit with something of everything, for the tests of the kit for tests.
#include <csignal>
#include <stdexcept>

#include "MfdDriver.h"
#include "mfd/Driver.h"
#include "mfd/Settings.h"

namespace {

using mfd::Answer;
using mfd::Arguments;
using mfd::Parameter;
using namespace std::chrono_literals;

class KitLamp : public mfd::Driver {
public:
    KitLamp() {
        function("BRIGHTNESS", {Parameter::integer("percent", 0, 100)}, [this](const Arguments& arguments) {
            m_brightness = arguments.integer("percent");
            m_settings.set("brightness", arguments.integer("percent"));
            if (const std::string fault = m_settings.save(); !fault.empty())
                log(sal::LogOutput::eError, fault);
        });
        function("BLINK",
                 [this] { m_timer = every(1s, [this] { m_lit = !m_lit.value().value_or(false); }); });
        function("STEADY", [this] { cancel(m_timer); });
        function("ALARM", {Parameter::text("text")}, [this](const Arguments& arguments) {
            FIDParameterList parameters;
            parameters.add("text", arguments.text("text"));
            m_fault.trigger(sendToDriver("PANEL.ALARM", parameters) ? "sent" : "not sent");
        });
        function("LOSE", [this] { m_brightness.unset(); });
        function("NAME", {Parameter::text("name")},
                 [this](const Arguments& arguments) { m_name = arguments.text("name"); });
        function("CRASH", [] { std::raise(SIGSEGV); });
        function("AGAIN", {Parameter::boolean("unset").orElse(false)}, [this](const Arguments& arguments) {
            if (arguments.boolean("unset"))
                m_level.report(std::nullopt);
            else
                m_level.report(2.5F);
            m_brightness.report();
        });
        answer("FORWARD", {Parameter::text("fid"), Parameter::further()}, [this](const Arguments& arguments) {
            if (m_lit.value() == true)
                return Answer::ignored("the lamp is lit");
            FIDParameterList rest;
            for (const auto& [name, value] : arguments.all())
                rest.add(name, value);
            return sendToDriver(arguments.text("fid"), rest) ? Answer::done()
                                                             : Answer::failed("it could not be sent");
        });
    }

private:
    bool start() override {
        if (const std::string fault = m_settings.load(configuration().nvramDirectory); !fault.empty())
            log(sal::LogOutput::eWarning, fault);
        m_brightness = m_settings.integer("brightness", 50);
        m_level = 2.5F;
        return true;
    }

    mfd::State<bool> m_lit{*this, "LIT", false};
    mfd::State<int> m_brightness{*this, "BRIGHTNESS"};
    mfd::State<float> m_level{*this, "LEVEL"};
    mfd::State<std::string> m_name{*this, "NAME"};
    const mfd::Event m_fault{*this, "FAULT"};
    mfd::Settings m_settings;
    unsigned m_timer = 0;
};

}  // namespace

MFD_DRIVER(KitLamp);
