#include "sal/CmdRegister.h"

namespace sal {

CmdRegister::CmdRegister(const std::string& name, const char* help) : m_name(name), m_help(help) {}

CmdRegister::~CmdRegister() = default;

}  // namespace sal
