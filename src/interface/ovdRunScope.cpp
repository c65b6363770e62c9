#include "interface/ovdRunScope.h"

#include "io/cTempFileGenerator.h"

namespace Ovidane {

// A call starts with files on disk; a run that chooses memory files says so in its set-up.
// A call made from a status callback restores the mode of the run it interrupted.
ovdRunScope::ovdRunScope()
    : mFirstName(cTempFileGenerator::Instance().GetNameCount()),
      mInMemory(cTempFileGenerator::Instance().SetInMemory(false)) {}

ovdRunScope::~ovdRunScope() {
    try {
        cTempFileGenerator::Instance().DeleteSince(mFirstName);
        cTempFileGenerator::Instance().SetInMemory(mInMemory);
    } catch (...) {
    }
}

} // namespace Ovidane
