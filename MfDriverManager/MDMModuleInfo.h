#pragma once

#include <string>

#include "MDMExport.h"

/// What a descriptor file says of one driver module type. Made by MDMModuleParser, owned by
/// MDMModuleHandler's catalogue; everybody else borrows it by pointer.
class MDM_API MDMModuleInfo {
public:
    MDMModuleInfo();
    virtual ~MDMModuleInfo();

    void setMFDriverFilename(const std::string& filename);
    void setMFDriverType(const std::string& type);
    void setMFDriverDirectory(const std::string& directory);
    void setMfDriverDescription(const std::string& description);
    void setMfDriverVersion(const std::string& version);
    void setMfDriverPDLFile(const std::string& pdlFile);
    void setMfDriverPrefix(const std::string& prefix);

    const std::string& getMFDriverFilename() const;
    const std::string& getMFDriverType() const;
    const std::string& getMFDriverDirectory() const;
    const std::string& getMfDriverDescription() const;
    const std::string& getMfDriverVersion() const;
    const std::string& getMfDriverPDLFile() const;
    const std::string& getMfDriverPrefix() const;

    /// Whether this is the module of that version and type; both are compared byte for byte.
    bool compareString(const std::string& version, const std::string& type) const;

    /// Writes the record to standard output; the prefix is left out.
    void showState() const;

private:
    std::string m_filename;
    std::string m_type;
    std::string m_directory;  ///< as it was given to the scan
    std::string m_description;
    std::string m_version;
    std::string m_pdlFile;
    std::string m_prefix;
};
