// Proves that the installed headers, library and package files are enough for a host.
#include <iostream>

#include "ModelCore/ModelCore.h"

int main() {
    const double version = MdlCore::GetVersion();
    std::cout << "ModelCore " << version << '\n';
    return version == 1.0 ? 0 : 1;
}
