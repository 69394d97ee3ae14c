// Its code cannot be unmapped: it has a symbol that is unique in the process.
#include "MfdDriver.h"
#include "MfdDriverBase.h"

template <class T>
struct __attribute__((visibility("default"))) UniqueCounter {
    static int s_count;
};
template <class T>
int UniqueCounter<T>::s_count = 0;

namespace {

class PinnedByUniqueSymbol : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override {
        return ++UniqueCounter<int>::s_count > 0;
    }
};

}  // namespace

MFD_DRIVER(PinnedByUniqueSymbol);
