// Passes each FID "PING to=TARGET back=OTHER" on at once, as "TARGET to=OTHER back=TARGET": two of them, or
// one alone, go round in a circle. "times" says how often it does so (1), "kib" how much it keeps on the
// stack. "COUNT" reports as "CALLS" how often it was called, and as "SPAN" over how many KiB of stack.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class Answers : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        if (fid == "COUNT") {
            panelState()->setStateValueInt("CALLS", m_calls);
            panelState()->setStateValueInt("SPAN", static_cast<int>((m_highest - m_lowest) / 1024));
            return true;
        }
        ++m_calls;
        const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        m_lowest = std::min(m_lowest, here);
        m_highest = std::max(m_highest, here);
        const int kibibytes = std::atoi(parameters.value("kib").c_str());
        return kibibytes > 0 ? passOnWithData(parameters, kibibytes) : passOn(parameters);
    }

private:
    __attribute__((noinline)) bool passOnWithData(const FIDParameterList& parameters, int kibibytes) const {
        const std::size_t size = static_cast<std::size_t>(kibibytes) * 1024;
        auto* pData = static_cast<volatile char*>(__builtin_alloca(size));
        for (std::size_t i = 0; i < size; i += 1024)
            pData[i] = 1;
        return passOn(parameters) && pData[0] == 1;
    }

    bool passOn(const FIDParameterList& parameters) const {
        auto* pSender =
            system() ? dynamic_cast<IFunctionID*>(system()->queryInterface(IID_IFunctionID)) : nullptr;
        if (!pSender)
            return false;
        FIDParameterList next;
        next.add("to", parameters.value("back"));
        next.add("back", parameters.value("to"));
        next.add("kib", parameters.value("kib"));
        next.add("times", parameters.value("times"));
        bool isSent = true;
        for (int i = std::max(1, std::atoi(parameters.value("times").c_str())); i > 0; --i)
            isSent = pSender->sendFID(parameters.value("to"), next) && isSent;
        return isSent;
    }

    mutable std::atomic<int> m_calls = 0;
    // Of the thread on which the test lets it run.
    mutable std::uintptr_t m_lowest = UINTPTR_MAX;
    mutable std::uintptr_t m_highest = 0;
};

}  // namespace

MFD_DRIVER(Answers);
