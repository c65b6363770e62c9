// Stubs still unbuilt below answer "Not built yet".
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "math/cImageMathGeneric.h"

namespace Ovidane {

void cImageMathGeneric::InterpolateLine(const cFloatImagePtr& image, cImagePosition& start, cImagePosition& end) {
    NotBuiltYet("InterpolateLine");
}

void cImageMathGeneric::InterpolateLineCosine(const cFloatImagePtr& image, cImagePosition& start, cImagePosition& end) {
    NotBuiltYet("InterpolateLineCosine");
}

void cImageMathGeneric::InterpolateRoi(const cFloatImagePtr& image, const cImageBox& box, int mode) {
    NotBuiltYet("InterpolateRoi");
}

void cImageMathGeneric::InterpolateBilinear(const cFloatImagePtr& in, const cFloatImagePtr& out, const cFloatImagePtr& firstWork, const cFloatImagePtr& secondWork) {
    NotBuiltYet("InterpolateBilinear");
}

void cImageMathGeneric::GenerateGridMask(const cFloatImagePtr& image, const unsigned& stepXY, const unsigned& stepZ) {
    NotBuiltYet("GenerateGridMask");
}

void cImageMathGeneric::GenerateBesselArray(const cFloatImagePtr& image, const double& scale) {
    NotBuiltYet("GenerateBesselArray");
}

void cImageMathGeneric::GeneratePsfWithSphericalAberrationUsingBessel( const cFloatImagePtr& target, const cFloatImagePtr& plane, const cFloatImagePtr& table, const cCountedArray<int32_t>& indexMap, const cCountedArray<float>& fractionMap, const cCountedArray<float>& realSum, const cCountedArray<float>& imaginarySum, const cCountedArray<float>& intensity, const cCountedArray<float>& phaseCosine, const cCountedArray<float>& phaseSine, const cImageDimensions& targetSize, const float& numericalAperture, const float& refractiveIndex, const float& lambda, const float& sphericalAberration, const float& axialPhaseFactor, const float& dz, const float& dRho, const unsigned& oversampling, const int& modality) {
    NotBuiltYet("GeneratePsfWithSphericalAberrationUsingBessel");
}

void cImageMathGeneric::Generate3DGaussian(const cFloatImagePtr& image, float dx, float dy, float dz, float fwhmX, float fwhmY, float fwhmZ) {
    NotBuiltYet("Generate3DGaussian");
}

void cImageMathGeneric::Generate3DHourglass(const cFloatImagePtr& image, float dx, float dy, float dz, float slope, float radius) {
    NotBuiltYet("Generate3DHourglass");
}

void cImageMathGeneric::Generate3DDvorakHourGlass(const cFloatImagePtr& in, const cFloatImagePtr& out, float dx, float dy, float dz, float numericalAperture, float refractiveIndex, float lambda, float factor, bool flat) {
    NotBuiltYet("Generate3DDvorakHourGlass");
}

void cImageMathGeneric::GenerateCylinder(const cFloatImagePtr& image, float dx, float dy, float dz, float halfHeight, float radius, float value) {
    NotBuiltYet("GenerateCylinder");
}

void cImageMathGeneric::FillCylinder(const cFloatImagePtr& image, float dx, float dy, float dz, float halfHeight, float radius, float value) {
    NotBuiltYet("FillCylinder");
}

void cImageMathGeneric::GenerateDoubleCone(const cFloatImagePtr& image, float dx, float dy, float dz, float slope, float value) {
    NotBuiltYet("GenerateDoubleCone");
}

void cImageMathGeneric::FillDoubleCone(const cFloatImagePtr& image, float dx, float dy, float dz, float slope, float value) {
    NotBuiltYet("FillDoubleCone");
}

void cImageMathGeneric::CreateDoubleTruncatedCone(const cFloatImagePtr& image, float dx, float dy, float dz, float minimumZ, float slope, float value, int mode) {
    NotBuiltYet("CreateDoubleTruncatedCone");
}

void cImageMathGeneric::RetrievePsfCenteringBrightestSlice(const cFloatImagePtr& out, const cFloatImagePtr& in) {
    NotBuiltYet("RetrievePsfCenteringBrightestSlice");
}

void cImageMathGeneric::CalculateMaskPerimeter(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    NotBuiltYet("CalculateMaskPerimeter");
}

float cImageMathGeneric::CalculateMaskPerimeter(const cFloatImagePtr& mask, float dx, float dy) {
    NotBuiltYet("CalculateMaskPerimeter");
}

} // namespace Ovidane
