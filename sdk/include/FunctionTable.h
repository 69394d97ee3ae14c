#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <span>
#include <string>

#include "FIDParameterList.h"

namespace mfd {

/// What the log says of a FID that a driver does not know, where every driver says the same: the host reads
/// it, too.
inline std::string unknownFunctionText(const std::string& fid, const std::string& names) {
    return "unknown FID \"" + fid + "\"; known are " + names;
}

/// The FIDs that a driver knows, each with the operation that does it. A driver has them as a static array,
/// and its sendFID() leaves the rest to MfdDriverBase::callFunction():
///
///     static const mfd::FunctionTable<MyDriver>::Function s_functions[] = {
///         {"MOVE", &MyDriver::move, {"to"}},
///         {"STOP", &MyDriver::stop},
///     };
///     return callFunction<MyDriver>(s_functions, fid, parameters);
template <class Driver>
class FunctionTable {
public:
    struct Function {
        const char* name;  ///< without the driver ID
        /// Called on any thread; false when it did not do what it was to do.
        bool (Driver::*handler)(const FIDParameterList& parameters) const;
        /// Parameters without which, or with an empty value, it is not called.
        std::initializer_list<const char*> needed = {};
    };

    /// Refers to the array.
    template <std::size_t count>
    FunctionTable(const Function (&functions)[count]) : m_functions(functions) {}

    /// Null when there is none of that name.
    const Function* find(const std::string& fid) const {
        const auto found = std::find_if(m_functions.begin(), m_functions.end(),
                                        [&](const Function& known) { return fid == known.name; });
        return found == m_functions.end() ? nullptr : &*found;
    }

    /// "MOVE, STOP", in the array's order.
    std::string names() const {
        std::string names;
        for (const Function& function : m_functions)
            names += (names.empty() ? "" : ", ") + std::string(function.name);
        return names;
    }

private:
    std::span<const Function> m_functions;
};

}  // namespace mfd
