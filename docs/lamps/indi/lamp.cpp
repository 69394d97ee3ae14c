#include <libindi/defaultdevice.h>

#include <cstring>
#include <memory>

class Lamp : public INDI::DefaultDevice {
public:
    const char *getDefaultName() override { return "Lamp"; }

    bool initProperties() override {
        INDI::DefaultDevice::initProperties();
        m_brightness[0].fill("PERCENT", "Percent", "%.0f", 0, 100, 1, 50);
        m_brightness.fill(getDeviceName(), "BRIGHTNESS", "Brightness", MAIN_CONTROL_TAB, IP_RW, 60, IPS_IDLE);
        m_fault[0].fill("FAULT", "Fault", IPS_IDLE);
        m_fault.fill(getDeviceName(), "FAULT", "Fault", MAIN_CONTROL_TAB, IPS_IDLE);
        return true;
    }

    bool updateProperties() override {
        INDI::DefaultDevice::updateProperties();
        if (isConnected()) {
            defineProperty(m_brightness);
            defineProperty(m_fault);
            loadConfig(true, "BRIGHTNESS");
        } else {
            deleteProperty(m_brightness);
            deleteProperty(m_fault);
        }
        return true;
    }

    bool ISNewNumber(const char *dev, const char *name, double values[], char *names[], int n) override {
        if (dev && !strcmp(dev, getDeviceName()) && m_brightness.isNameMatch(name)) {
            // The client has the range; out of it update() refuses.
            m_brightness.setState(m_brightness.update(values, names, n) ? IPS_OK : IPS_ALERT);
            m_brightness.apply();
            saveConfig(true, "BRIGHTNESS");
            if (m_brightness[0].getValue() == 100)
                overheat();
            return true;
        }
        return INDI::DefaultDevice::ISNewNumber(dev, name, values, names, n);
    }

protected:
    bool Connect() override { return true; }
    bool Disconnect() override { return true; }
    bool saveConfigItems(FILE *fp) override {
        INDI::DefaultDevice::saveConfigItems(fp);
        m_brightness.save(fp);
        return true;
    }

private:
    void overheat() {
        m_fault[0].setState(IPS_ALERT);
        m_fault.setState(IPS_ALERT);
        m_fault.apply("too hot");
    }

    INDI::PropertyNumber m_brightness{1};
    INDI::PropertyLight m_fault{1};
};

static std::unique_ptr<Lamp> lamp(new Lamp());
