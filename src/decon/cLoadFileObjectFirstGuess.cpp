#include "decon/cLoadFileObjectFirstGuess.h"

#include <utility>

#include "core/cException.h"
#include "io/cUnmanagedRawFileReader.h"

namespace Ovidane {

cLoadFileObjectFirstGuess::cLoadFileObjectFirstGuess(std::string fileName)
    : mFileName(std::move(fileName)) {
    SetObjectName("cLoadFileObjectFirstGuess");
}

void cLoadFileObjectFirstGuess::Apply(cFloatImagePtr& /*psf*/, cFloatImagePtr& /*original*/,
                                      cFloatImagePtr& object) {
    Guard([&] {
        if (object.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        cUnmanagedRawFileReader reader(mFileName);
        if (!reader.Open())
            Fail("Could not open file to read: " + mFileName, OVD_ERR_PARAMETER);
        const bool complete = reader.Read(object);
        reader.Close();
        if (!complete)
            Fail("Object first guess file too short: " + mFileName, OVD_ERR_PARAMETER);
    });
}

} // namespace Ovidane
