#include "AdapterFault.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sal/NetworkAdapter.h"

TEST(AdapterFault, MissingAdapterIsNamed) {
    EXPECT_EQ("no adapter eth77", adapterFault("eth77"));
    EXPECT_EQ("no adapter eth\\n7", adapterFault("eth\n7"));
}

// In a process of its own: second names are for good.
TEST(AdapterFault, SecondNameIsAnAdapter) {
    const pid_t child = ::fork();
    if (child == 0) {
        sal::NetworkAdapter::setSecondName("eth0", "lo");
        sal::NetworkAdapter::setSecondName("cell", "lo");
        ::_exit(adapterFault("").empty() && adapterFault("lo").empty() && adapterFault("cell").empty() ? 0
                                                                                                       : 1);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}
