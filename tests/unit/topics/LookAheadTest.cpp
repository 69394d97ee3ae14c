// The look-ahead queue of the driver proxy against the simplest queue that does the same.

#include <gtest/gtest.h>

#include <list>
#include <random>
#include <tuple>
#include <vector>

#include "FakeHost.h"
#include "IPanelState.h"
#include "MDMDriverIPCI.h"
#include "Rounds.h"

namespace {

using QueueCmd = MDMDriverIPCI::QueueCmd;
using Delivered = std::vector<std::tuple<int, std::string, std::string>>;

class Panel : public IPanelState {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void setStateValue(const std::string& id, const std::string& value) override {
        delivered.emplace_back(1, id, value);
    }
    void setStateValueFloat(const std::string& id, float value) override {
        delivered.emplace_back(3, id, std::to_string(static_cast<int>(value)));
    }
    void setStateValueInt(const std::string& id, int value) override {
        delivered.emplace_back(2, id, std::to_string(value));
    }
    void setStateValueBool(const std::string& id, bool value) override {
        delivered.emplace_back(4, id, value ? "1" : "0");
    }
    void unsetStateValue(const std::string& id) override { delivered.emplace_back(0, id, ""); }
    void triggerEvent(const std::string& id, const std::string& value) override {
        delivered.emplace_back(5, id, value);
    }

    Delivered delivered;
};

QueueCmd update(int kind, const std::string& name, int value) {
    QueueCmd command;
    command.name = name;
    command.cmdType = kind;
    if (kind == 1 || kind == 5)
        command.strValue = std::to_string(value);
    else if (kind == 2)
        command.numValue.asInt = value;
    else if (kind == 3)
        command.numValue.asFloat = static_cast<float>(value);
    else if (kind == 4)
        command.numValue.asBool = value % 2 != 0;
    return command;
}

/// A list that is searched from its oldest entry each time.
class PlainQueue {
public:
    void lookAhead(int kind, const std::string& name, int value) {
        if (kind != 5) {
            for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
                if (std::get<0>(*entry) == kind && std::get<1>(*entry) == name) {
                    m_entries.erase(entry);
                    break;
                }
            }
        }
        const std::string text = kind == 0   ? ""
                                 : kind == 4 ? std::to_string(value % 2)
                                             : std::to_string(value);
        m_entries.emplace_back(kind, name, text);
    }
    Delivered flush() {
        Delivered delivered;
        for (const auto& entry : m_entries)
            if (std::get<0>(entry) <= 5)
                delivered.push_back(entry);
        m_entries.clear();
        return delivered;
    }

private:
    std::list<std::tuple<int, std::string, std::string>> m_entries;
};

}  // namespace

TEST(LookAhead, EnduranceAnySequenceIsDeliveredAsByAPlainQueue) {
    constexpr int sequencesARound = 2000;
    const std::vector<std::string> names{"",
                                         "a",
                                         "b",
                                         "A",
                                         "POSITION",
                                         "a.b",
                                         std::string("a\0b", 3),
                                         "a name that is too long for a short text"};
    const fakehost::FakeHost host;
    Panel panel;
    MDMDriverIPCI sut("", "A");
    sut.setPanelStateInterface(&panel);
    PlainQueue plain;
    std::mt19937 random(20261121);
    const auto below = [&random](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    for (int sequence = 0; sequence < rounds() * sequencesARound; ++sequence) {
        // One in a hundred is longer than what is ever held back.
        const int length = below(100) == 0 ? 350 : below(12);
        const int variety = 1 + below(static_cast<int>(names.size()));
        for (int i = 0; i < length; ++i) {
            const int kind = below(7);
            const std::string& name = names[static_cast<std::size_t>(below(variety))];
            const int value = below(1000);
            sut.lookAhead(update(kind, name, value));
            plain.lookAhead(kind, name, value);
        }
        sut.flushLAQueue();
        ASSERT_EQ(panel.delivered, plain.flush()) << "sequence " << sequence;
        panel.delivered.clear();
    }
}

TEST(LookAhead, ManyDifferentNamesAreDeliveredInOrder) {
    const fakehost::FakeHost host;
    Panel panel;
    MDMDriverIPCI sut("", "A");
    sut.setPanelStateInterface(&panel);
    for (int round = 0; round < 3; ++round) {
        Delivered expected;
        for (int i = 0; i < 5000; ++i) {
            sut.lookAhead(update(2, "VALUE" + std::to_string(i), round));
            expected.emplace_back(2, "VALUE" + std::to_string(i), std::to_string(round));
        }
        sut.flushLAQueue();
        EXPECT_EQ(panel.delivered, expected);
        panel.delivered.clear();
    }
}
