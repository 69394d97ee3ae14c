#include "MDMModuleChecker.h"

#include <gtest/gtest.h>

#include <type_traits>

TEST(MDMModuleChecker, IsEmptyButForItsVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMModuleChecker>);
    EXPECT_EQ(sizeof(MDMModuleChecker), sizeof(void*));
}
