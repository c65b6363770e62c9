#include "decon/cDerivedPsfFirstGuess.h"

#include <ostream>

#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

// The floor of the result as a fraction of its range: low enough not to disturb the shape,
// high enough that a multiplicative update never meets an exact zero.
constexpr float kFloorFraction = 0.001f;
// Correlation: the spectrum of the first operand times the conjugate of the second's.
constexpr int kCorrelation = 1;

} // namespace

cDerivedPsfFirstGuess::cDerivedPsfFirstGuess() {
    SetObjectName("cDerivedPsfFirstGuess");
}

void cDerivedPsfFirstGuess::Apply(cFloatImagePtr& psf, cFloatImagePtr& original) {
    Guard([&] {
        if (!original) {
            MessageStream() << "Null Image in cDerivedPsfFirstGuess" << std::endl;
            return;
        }
        psf = cFloatImagePtr(new cOvdImage<float>(original->GetDimensions(), GetObjectName()));
        cFFTManager::Instance().Convolve(original, original, psf, kCorrelation);

        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const float lowest = math->FindMinimumValue(psf);
        const float highest = math->FindMaximumValue(psf);
        const float pedestal = lowest - (highest - lowest) * kFloorFraction;
        math->SubtractImageByConstant(psf, pedestal, psf);
    });
}

} // namespace Ovidane
