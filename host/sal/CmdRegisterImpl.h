#pragma once

#include "sal/CmdRegister.h"

namespace sal {

/// Binds a command to a member function of an object, which is not owned and must outlive every call.
template <class T>
class CmdRegisterImpl : public CmdRegister {
public:
    using Handler = bool (T::*)(CmdParameters&);

    CmdRegisterImpl(const std::string& name, const char* help, T* pObject, Handler handler)
        : CmdRegister(name, help), m_pObject(pObject), m_handler(handler) {}

    bool call(CmdParameters& parameters) override { return (m_pObject->*m_handler)(parameters); }

private:
    T* m_pObject;
    Handler m_handler;
};

}  // namespace sal
