#include "sal/ModuleLoader.h"

#include <exception>
#include <memory>
#include <utility>

#include "DynamicLibrary.h"
#include "ExceptionText.h"
#include "LoadFault.h"
#include "LogLine.h"
#include "ModuleImpl.h"
#include "ModuleTrial.h"
#include "ObservedCall.h"
#include "sal/DriverModule.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

using Factory = IInterface* (*)();

/// What the macro of the driver kit writes into each module.
std::string withoutMacro(const std::string& error) {
    return "MFD_DRIVER is missing in it (" + error + ")";
}

bool hasRightAbi(const DynamicLibrary& library, std::string& error) {
    const auto* pAbi = static_cast<const unsigned int*>(library.symbol(MFD_DRIVER_ABI_SYMBOL, error));
    if (!pAbi) {
        error = withoutMacro(error);
        return false;
    }
    if (*pAbi == MFD_DRIVER_ABI)
        return true;
    error = "it was built for driver interface " + std::to_string(*pAbi) + ", this host has " +
            std::to_string(MFD_DRIVER_ABI) + "; build it again with this host's driver kit";
    return false;
}

std::unique_ptr<IInterface> makeDriver(const DynamicLibrary& library, std::string& error) {
    const auto factory = reinterpret_cast<Factory>(library.symbol(MFD_DRIVER_FACTORY_SYMBOL, error));
    if (!factory) {
        error = withoutMacro(error);
        return nullptr;
    }
    error = "its factory made no driver";
    try {
        return std::unique_ptr<IInterface>(factory());
    } catch (const std::exception& e) {
        error = "its driver cannot be made: " + exceptionText(e);
    } catch (...) {
        if (isThreadEnding())
            throw;
        error = "its driver cannot be made: " + currentExceptionText();
    }
    return nullptr;
}

/// What this process knows of module files.
ModuleTrial& moduleTrial() {
    static ModuleTrial s_trial(ModuleTrial::Settings::ofProcess());
    return s_trial;
}

/// The dynamic loader looks a name without a slash up in the system's directories.
std::string pathOf(const std::string& fileName) {
    return fileName.find('/') == std::string::npos ? "./" + fileName : fileName;
}

}  // namespace

Module* ModuleLoader::load(ELoadOption option, const std::string& fileName) {
    const std::string path = pathOf(fileName);
    DynamicLibrary library;
    std::unique_ptr<IInterface> pDriver;
    std::string error = option == eLoadUnprobed ? std::string() : moduleTrial().refusal(path);
    if (error.empty() && library.open(path, error) && hasRightAbi(library, error))
        pDriver = makeDriver(library, error);
    if (!pDriver) {
        logLine("MODULE", LogOutput::eError,
                std::string(s_cannotLoad) + path + std::string(s_faultFollows) + error);
        ObservedCall::loadFailed(fileName, error);
        return nullptr;
    }
    return new Module(std::make_unique<Module::Impl>(path, std::move(library), std::move(pDriver)));
}

std::string ModuleLoader::tryOut(const std::string& fileName) {
    return moduleTrial().fault(pathOf(fileName));
}

std::string ModuleLoader::faultIn(const std::string& text) {
    if (!text.starts_with(s_cannotLoad))
        return {};
    // The path may hold what stands between it and the reason, but seldom does.
    const auto begin = text.find(s_faultFollows, s_cannotLoad.size());
    return begin == std::string::npos ? std::string() : text.substr(begin + s_faultFollows.size());
}

}  // namespace sal
