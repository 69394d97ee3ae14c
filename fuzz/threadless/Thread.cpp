#include "sal/Thread.h"

#include "Expect.h"

namespace sal {

// Nobody but the program itself runs a body.
struct Thread::Impl {};

Thread::Thread() = default;

Thread::~Thread() = default;

bool Thread::start(EPriority) {
    return true;
}

bool Thread::shutdown(int) {
    return true;
}

void Thread::sleep(unsigned int) {}

void Thread::mssleep(unsigned int) {
    expect(false, "nothing waits for what never comes");
}

}  // namespace sal
