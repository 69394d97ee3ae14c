#pragma once

/// What a driver module exports; MFD_DRIVER of the driver kit writes both.
///   extern "C" IInterface* mfdCreateDriver();    a new driver, or null; the loader deletes it
///   extern "C" const unsigned int mfdDriverAbi;  MFD_DRIVER_ABI of the headers it was built with
#define MFD_DRIVER_ABI 1u
#define MFD_DRIVER_FACTORY_SYMBOL "mfdCreateDriver"
#define MFD_DRIVER_ABI_SYMBOL "mfdDriverAbi"
