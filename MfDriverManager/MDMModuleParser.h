#pragma once

#include <list>
#include <string>

#include "MDMExport.h"

class MDMModuleInfo;
class TiXmlNode;

/// Reads driver descriptor files into records that the caller's list owns. Holds no state. A scan changes the
/// working directory of the process, so nothing that uses relative paths may run beside it.
class MDM_API MDMModuleParser {
public:
    MDMModuleParser();
    virtual ~MDMModuleParser();

    /// Appends a record for every module type of every "xml" file in the directory. A directory that cannot
    /// be entered adds nothing.
    void parseDirectory(std::list<MDMModuleInfo*>& modules, const std::string& directory) const;

    /// Reads one file. A broken one is reported on standard output and adds nothing; a node that is no module
    /// type ends the file there.
    void parseXML(std::list<MDMModuleInfo*>& modules, const std::string& directory,
                  const std::string& fileName) const;

    /// Appends the record of one "module_type" element. False for a null node.
    bool parseModuleType(std::list<MDMModuleInfo*>& modules, TiXmlNode* node,
                         const std::string& directory) const;
};
