// Each thread that sends it a FID has a destructor of its code to run at its end.
#include "MfdDriver.h"
#include "MfdDriverBase.h"

namespace {

class LastWords {
public:
    ~LastWords() { m_text.clear(); }
    bool add(const std::string& text) {
        m_text += text;
        return !m_text.empty();
    }

private:
    std::string m_text;
};

class PinnedByThreadLocal : public MfdDriverBase {
public:
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        static thread_local LastWords s_lastWords;
        return s_lastWords.add(fid);
    }
};

}  // namespace

MFD_DRIVER(PinnedByThreadLocal);
