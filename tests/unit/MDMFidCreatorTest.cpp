#include "MDMFidCreator.h"

#include <gtest/gtest.h>

#include <type_traits>

TEST(MDMFidCreator, IsEmptyButForItsVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMFidCreator>);
    EXPECT_EQ(sizeof(MDMFidCreator), sizeof(void*));
}
