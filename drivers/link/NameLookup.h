#pragma once

#include <netdb.h>

#include <memory>
#include <string>

/// Whether the system finds addresses for a machine's name, asked on a thread of the C library, since a
/// resolver that is not answered takes as long as it likes. Used by one thread.
class NameLookup {
public:
    enum class EState { UnderWay, Found, Failed };

    /// Begins to look the name up, or an address.
    explicit NameLookup(const std::string& name);
    /// Does not wait for a lookup that is under way.
    ~NameLookup();
    NameLookup(const NameLookup&) = delete;
    NameLookup& operator=(const NameLookup&) = delete;

    /// How far it is; at once.
    EState state() const;
    /// Why it has failed.
    std::string fault() const;

private:
    struct Request;

    std::unique_ptr<Request> m_pRequest;
    int m_error = 0;  ///< of beginning it
};
