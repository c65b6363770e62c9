#include "interface/ovdRunScope.h"

#include "io/cTempFileGenerator.h"

namespace Ovidane {

ovdRunScope::ovdRunScope() : mFirstName(cTempFileGenerator::Instance().GetNameCount()) {}

ovdRunScope::~ovdRunScope() {
    try {
        cTempFileGenerator::Instance().DeleteSince(mFirstName);
    } catch (...) {
    }
}

} // namespace Ovidane
