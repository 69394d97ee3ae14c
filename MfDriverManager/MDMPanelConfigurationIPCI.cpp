#include "MDMPanelConfigurationIPCI.h"

MDMPanelConfigurationIPCI::MDMPanelConfigurationIPCI() = default;

MDMPanelConfigurationIPCI::~MDMPanelConfigurationIPCI() = default;
