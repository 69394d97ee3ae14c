#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "sal/Export.h"

/// The named parameters of a FID: ordered pairs of texts; a name may occur more than once.
/// Wire form: a count byte, then for each pair the name and the value, each as a length byte and its bytes.
/// So a list on the wire has at most 255 pairs, and a name or value at most 255 bytes.
class SAL_API FIDParameterList {
public:
    using Parameter = std::pair<std::string, std::string>;

    void add(const std::string& name, const std::string& value);

    std::size_t size() const { return m_parameters.size(); }
    bool empty() const { return m_parameters.empty(); }
    std::vector<Parameter>::const_iterator begin() const { return m_parameters.begin(); }
    std::vector<Parameter>::const_iterator end() const { return m_parameters.end(); }

    /// Value of the first parameter of that name; fallback when there is none.
    std::string value(const std::string& name, const std::string& fallback = std::string()) const;
    bool contains(const std::string& name) const;

    /// Writes the wire form and returns its length; 0 when size leaves no room for the count. Whole pairs
    /// only: what does not fit is left out, counted and logged.
    int serialize(char* buffer, int size) const;

    /// Adds the pairs of a wire form and returns the bytes read. Pairs that would cross the end are left out.
    int deserialize(const char* buffer, int size);

    bool operator==(const FIDParameterList& other) const = default;

private:
    std::vector<Parameter> m_parameters;
};

/// "name=value, name=value"; nothing for an empty list.
SAL_API std::ostream& operator<<(std::ostream& stream, const FIDParameterList& parameters);
