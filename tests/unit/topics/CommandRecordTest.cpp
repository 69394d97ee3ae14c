// The records that the manager hands to the command processor. Built without access control, to see what they
// lead to.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "Console.h"
#include "FakeHost.h"
#include "MDMFidDistributor.h"
#include "MDMModuleHandler.h"
#include "MfDriverManager.h"
#include "sal/CmdRegisterImpl.h"

namespace {

using OfDistributor = sal::CmdRegisterImpl<MDMFidDistributor>;
using OfHandler = sal::CmdRegisterImpl<MDMModuleHandler>;

struct CommandRecord : testing::Test {
    fakehost::FakeHost host;
    MfDriverManager sut;

    void SetUp() override {
        sut.init();
        ASSERT_EQ(commands().size(), 5u);
    }
    static const std::vector<sal::CmdRegister*>& commands() { return fakehost::Console::instance().commands; }
    static const OfDistributor* ofDistributor(std::size_t index) {
        return dynamic_cast<OfDistributor*>(commands()[index]);
    }
};

/// Where a member begins in its record.
template <class Member>
std::ptrdiff_t offsetIn(const OfHandler& record, const Member& member) {
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&record);
}

}  // namespace

TEST_F(CommandRecord, FirstFourLeadToTheDistributor) {
    for (std::size_t index = 0; index < 4; ++index) {
        ASSERT_NE(ofDistributor(index), nullptr) << index;
        EXPECT_EQ(ofDistributor(index)->m_pObject, sut.m_pFidDistributor) << index;
    }
    EXPECT_EQ(ofDistributor(0)->m_handler, &MDMFidDistributor::shellCmdSetStateValue);
    EXPECT_EQ(ofDistributor(1)->m_handler, &MDMFidDistributor::shellCmdUnsetStateValue);
    EXPECT_EQ(ofDistributor(2)->m_handler, &MDMFidDistributor::shellCmdTriggerEvent);
    EXPECT_EQ(ofDistributor(3)->m_handler, &MDMFidDistributor::shellCmdSendFID);
}

TEST_F(CommandRecord, LastLeadsToTheModuleHandler) {
    const auto* pRecord = dynamic_cast<OfHandler*>(commands()[4]);
    ASSERT_NE(pRecord, nullptr);
    EXPECT_EQ(pRecord->m_pObject, sut.m_pModuleHandler);
    EXPECT_EQ(pRecord->m_handler, &MDMModuleHandler::shellCmdReloadDriver);
}

TEST_F(CommandRecord, HandlersAreCalledOnTheObjectItself) {
    for (std::size_t index = 0; index < 4; ++index) {
        std::intptr_t words[2];
        const OfDistributor::Handler handler = ofDistributor(index)->m_handler;
        static_assert(sizeof handler == sizeof words);
        std::memcpy(words, &handler, sizeof words);
        EXPECT_EQ(words[1], 0) << index;
    }
}

TEST_F(CommandRecord, HelpTextIsAConstantAndNotCopied) {
    MfDriverManager second;
    second.init();
    ASSERT_EQ(commands().size(), 10u);
    for (std::size_t index = 0; index < 5; ++index)
        EXPECT_EQ(commands()[index]->help(), commands()[index + 5]->help()) << index;
}

TEST_F(CommandRecord, EachIsARecordOfItsOwn) {
    for (std::size_t first = 0; first < 5; ++first) {
        for (std::size_t second = first + 1; second < 5; ++second)
            EXPECT_NE(commands()[first], commands()[second]);
    }
}

TEST_F(CommandRecord, FieldsLieInOrder) {
    const OfHandler record("", "", nullptr, nullptr);
    constexpr std::ptrdiff_t word = sizeof(void*);
    constexpr std::ptrdiff_t text = sizeof(std::string);
    EXPECT_EQ(offsetIn(record, record.m_name), word);
    EXPECT_EQ(offsetIn(record, record.m_help), word + text);
    EXPECT_EQ(offsetIn(record, record.m_pObject), 2 * word + text);
    EXPECT_EQ(offsetIn(record, record.m_handler), 3 * word + text);
    EXPECT_EQ(sizeof record, static_cast<std::size_t>(5 * word + text));
}
