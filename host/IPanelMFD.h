#pragma once

#include "IInterface.h"

/// The panel driver's own face. Passed through from the panel driver to the host; the operations are theirs.
class IPanelMFD : public virtual IInterface {};
