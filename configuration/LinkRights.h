#pragma once

#include <string>
#include <vector>

#include "LinkSettings.h"

/// What each site of these links may do at the broker, as lines of mosquitto's ACL file. A site's own tree is
/// its own, it reads of another what it imports, and only sites that it allows to may send FIDs to its
/// drivers; what no line names nobody may, to subscribe to everything least of all. The lines of several
/// workplaces make one file, one after another. Sites of other brokers stand under their broker's comment.
/// Any thread.
std::string linkRights(const std::vector<LinkSettings>& links);
