#pragma once

#include <string>
#include <utility>
#include <vector>

#include "FIDParameterList.h"
#include "mfd/Parameter.h"

namespace mfd {

/// What the handler of a function gets: the FID's parameters, checked, converted, and with what stands for
/// those that were left out. A value. Asking for one that the function does not declare, or declares with
/// another type, is a mistake of the driver's: a std::logic_error names it.
class Arguments {
public:
    bool boolean(const std::string& name) const;
    int integer(const std::string& name) const;
    double number(const std::string& name) const;
    /// Of a text or a choice.
    const std::string& text(const std::string& name) const;
    /// The FID's parameters as they came, in their order: those that the function does not declare, names
    /// that stand there several times and empty texts included.
    const FIDParameterList& all() const { return m_all; }

    /// Fills the arguments from a FID. What is wrong, for the end of "MOVE ignored, ..."; empty when nothing
    /// is. A parameter that is not declared, or stands there twice, is wrong, too, unless
    /// Parameter::further() is declared. An empty value counts as left out.
    std::string fill(const std::vector<Parameter>& declared, const FIDParameterList& given);

private:
    template <class Type>
    const Type& get(const std::string& name, const char* pType) const;

    std::vector<std::pair<std::string, Parameter::Value>> m_values;
    FIDParameterList m_all;
};

}  // namespace mfd
