#pragma once

/// Identifiers for IInterface::queryInterface. The numbers are ABI: host, module and drivers share them.
/// Who answers what:
///   1012, 1107, 1109   the driver "PANEL", through the manager
///   1100               every driver, the FID distributor, the manager, the host's ISystem
///   1101               the FID distributor, the driver ports, the virtual panel link
///   1102, 1103         the configuration distributor
///   1104               the module handler, the manager
///   1105               the status endpoint
///   1106               the FID distributor
///   1201               every driver
enum EInterfaceId : unsigned int {
    IID_IPanelSettings = 1012,
    IID_IFunctionID = 1100,
    IID_IPanelState = 1101,
    IID_IMfDriverConfig = 1102,
    IID_IConfigState = 1103,
    IID_IMDMConfiguration = 1104,
    IID_IMDMStatus = 1105,
    IID_IDistributorFID = 1106,
    IID_IMacroSystem = 1107,
    IID_IPanelMFD = 1109,
    IID_IMFDConfiguration = 1201,
};
