#pragma once

#include <optional>
#include <string>

#include "Finding.h"
#include "WorkplaceFile.h"
#include "XmlInput.h"

/// A workplace file and its signature as they were at one moment, each read once. Made for one decision: a
/// start, a reload, a restart or a check. What is checked, verified and handed to the module are these bytes,
/// whatever is on disk by then. Any thread.
class WorkplaceSnapshot {
public:
    /// An empty path is a workplace without a configuration: nothing is read, and nothing is wrong with it.
    explicit WorkplaceSnapshot(const std::string& path);

    const std::string& path() const { return m_path; }
    /// What the file held; nothing where it could not be read.
    const std::optional<std::string>& bytes() const { return m_input.bytes; }
    /// What keeps the file from the XML library; nothing for one that it may read.
    const std::optional<Finding>& finding() const { return m_input.finding; }
    /// What is wrong with the signature, as XMLVerify puts it; empty when it is right.
    const std::string& signatureFault() const { return m_signatureFault; }
    /// What was read of the signature; empty where there is none or it cannot be used.
    const std::string& signature() const { return m_signature; }
    /// The entries. Those of a file that is kept from the library are none, and its path is empty.
    const WorkplaceFile& file() const { return m_file; }

    /// Why nothing may be started or reloaded from it, whatever its entries are; empty when it may.
    std::string refusal(bool isSignatureRequired) const;

private:
    std::string m_path;
    XmlInput m_input;
    std::string m_signature;
    std::string m_signatureFault;
    WorkplaceFile m_file;
};
