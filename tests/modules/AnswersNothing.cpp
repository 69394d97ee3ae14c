// Answers no interface at all.
#include "MfdDriver.h"

namespace {

class AnswersNothing : public IInterface {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
};

}  // namespace

MFD_DRIVER(AnswersNothing);
