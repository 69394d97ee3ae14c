#pragma once

#include <set>
#include <string>
#include <vector>

#include "Finding.h"

class TiXmlDocument;

/// The driver modules that descriptors announce, in the order in which the module reads them, and what is
/// wrong with the descriptors. Made for each check; the host keeps the one of its start for its reloads,
/// since the module keeps its own catalogue, too. Any thread, as long as the working directory stays.
class DescriptorCatalogue {
public:
    struct Record {
        std::string file = {};  ///< the descriptor
        int line = 0;
        std::string name = {};    ///< as the descriptor has it
        std::string module = {};  ///< the path of the module file
        std::string type = {};
        std::string version = {};
        std::string description = {};
        std::string pdlFile = {};
        std::string prefix = {};

        /// Whether the module could not tell it from the other: two that differ in file and line alone.
        bool isSame(const Record& other) const;
    };

    DescriptorCatalogue() = default;
    /// Reads the descriptors of these directories, each directory once.
    explicit DescriptorCatalogue(const std::vector<std::string>& directories);

    const std::vector<Record>& records() const { return m_records; }
    /// The record that is loaded for a type and version; null where no descriptor announces them.
    const Record* find(const std::string& type, const std::string& version) const;
    /// Appends what the other one has read of these files, as a search for them does to the module's own.
    void add(const DescriptorCatalogue& other, const std::set<std::string>& files);
    /// What is wrong with directories and descriptors, and the modules that are missing by now.
    std::vector<Finding> findings() const;
    /// What is by now where the record's module file should be; empty for a file.
    static std::string moduleFault(const Record& record);

private:
    void readDirectory(const std::string& directory);
    void readFile(const std::string& directory, const std::string& file);
    void readDocument(const TiXmlDocument& document, const std::string& directory, const std::string& file);
    void warn(const std::string& file, int line, const std::string& text);

    std::vector<Record> m_records;
    std::vector<Finding> m_findings;
};
