#include "MDMModuleInfo.h"

#include <iostream>

MDMModuleInfo::MDMModuleInfo() = default;

MDMModuleInfo::~MDMModuleInfo() = default;

void MDMModuleInfo::setMFDriverFilename(const std::string& filename) {
    m_filename = filename;
}

void MDMModuleInfo::setMFDriverType(const std::string& type) {
    m_type = type;
}

void MDMModuleInfo::setMFDriverDirectory(const std::string& directory) {
    m_directory = directory;
}

void MDMModuleInfo::setMfDriverDescription(const std::string& description) {
    m_description = description;
}

void MDMModuleInfo::setMfDriverVersion(const std::string& version) {
    m_version = version;
}

void MDMModuleInfo::setMfDriverPDLFile(const std::string& pdlFile) {
    m_pdlFile = pdlFile;
}

void MDMModuleInfo::setMfDriverPrefix(const std::string& prefix) {
    m_prefix = prefix;
}

const std::string& MDMModuleInfo::getMFDriverFilename() const {
    return m_filename;
}

const std::string& MDMModuleInfo::getMFDriverType() const {
    return m_type;
}

const std::string& MDMModuleInfo::getMFDriverDirectory() const {
    return m_directory;
}

const std::string& MDMModuleInfo::getMfDriverDescription() const {
    return m_description;
}

const std::string& MDMModuleInfo::getMfDriverVersion() const {
    return m_version;
}

const std::string& MDMModuleInfo::getMfDriverPDLFile() const {
    return m_pdlFile;
}

const std::string& MDMModuleInfo::getMfDriverPrefix() const {
    return m_prefix;
}

bool MDMModuleInfo::compareString(const std::string& version, const std::string& type) const {
    return m_version == version && m_type == type;
}

void MDMModuleInfo::showState() const {
    std::cout << "MDMModuleInfo:" << std::endl;
    std::cout << "Filename : " << m_filename << std::endl;
    std::cout << "Type     : " << m_type << std::endl;
    std::cout << "Directory: " << m_directory << std::endl;
    std::cout << "PDL file : " << m_pdlFile << std::endl;
    std::cout << "Descript.: " << m_description << std::endl;
    std::cout << "Version  : " << m_version << std::endl;
    std::cout << std::endl;
}
