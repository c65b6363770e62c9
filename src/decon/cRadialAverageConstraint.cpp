#include "decon/cRadialAverageConstraint.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cRadialAverageConstraint::cRadialAverageConstraint() : cConstraint("cRadialAverageConstraint") {}

void cRadialAverageConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        // One slice of room: the averages of a slice are formed apart from it and copied back.
        cFloatImagePtr work(new cFloatImage(
            cImageDimensions{image->GetSizeX(), image->GetSizeY(), 1}, GetObjectName()));
        cImageMathManager::Instance().GetImageMath()->RadialAverage(image, work);
    });
}

} // namespace Ovidane
