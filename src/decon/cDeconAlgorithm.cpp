#include "decon/cDeconAlgorithm.h"

#include <cstdio>
#include <utility>

namespace Ovidane {

cDeconAlgorithm::cDeconAlgorithm(cCountedPtr<cDeconLog> log) : mLog(std::move(log)) {}

cDeconAlgorithm::~cDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cDeconAlgorithm::DeleteOriginalFileIfOwned() {
    if (mOriginalFileHandled || mLog.IsNull())
        return;
    mOriginalFileHandled = true;
    const cDeconParameter& p = mLog->GetParameters();
    // The file was made for this run alone (a converted stack or a subvolume); once the
    // algorithm goes nobody reads it again. A file that is gone already is no failure.
    if (p.GetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE)) {
        const std::string& name = p.GetString(DEC_SPARAMS_ORIGINAL_FILE);
        if (!name.empty())
            (void)std::remove(name.c_str());
    }
}

cFloatImagePtr cDeconAlgorithm::GetResultImage() const {
    if (mFramework.IsNull())
        return cFloatImagePtr();
    return mFramework->GetObjectImage();
}

} // namespace Ovidane
