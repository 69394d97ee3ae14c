#include "MDMPanelConfigurationIPCI.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "IInterface.h"

TEST(MDMPanelConfigurationIPCI, IsNoInterface) {
    EXPECT_FALSE((std::is_base_of_v<IInterface, MDMPanelConfigurationIPCI>));
}

TEST(MDMPanelConfigurationIPCI, IsDeletedThroughItsVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMPanelConfigurationIPCI>);
}
