#include "ModelCore/ZVFWMC/MCDebug.h"

#include <cxxabi.h>

#include <cstdlib>

std::string MCDebug::ClassName(const std::type_info& type) {
    const char* pcMangled = type.name();
    int nStatus = 0;
    char* pcDemangled = abi::__cxa_demangle(pcMangled, nullptr, nullptr, &nStatus);
    std::string sName = nStatus == 0 && pcDemangled != nullptr ? pcDemangled : pcMangled;
    std::free(pcDemangled);
    return sName;
}
