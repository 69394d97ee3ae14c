#pragma once

#include "IInterface.h"

/// The panel driver's settings. Passed through from the panel driver to the host; the operations are theirs.
class IPanelSettings : public virtual IInterface {};
