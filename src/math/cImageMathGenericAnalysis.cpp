// Stubs still unbuilt below answer "Not built yet".
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "math/cImageMathGeneric.h"

namespace Ovidane {

float cImageMathGeneric::LagrangeMultiplierCalculateVU(const cFloatImagePtr& image, const cFloatImagePtr& mask) {
    NotBuiltYet("LagrangeMultiplierCalculateVU");
}

float cImageMathGeneric::LagrangeMultiplierCalculateA2(const cFloatImagePtr& image, const cFloatImagePtr& mask, float a, float b) {
    NotBuiltYet("LagrangeMultiplierCalculateA2");
}

float cImageMathGeneric::LagrangeMultiplierCalculateA3(const cFloatImagePtr& image, const cFloatImagePtr& mask, float a1, float a2, float a3) {
    NotBuiltYet("LagrangeMultiplierCalculateA3");
}

void cImageMathGeneric::LagrangeMultiplierConstraintApply(const cFloatImagePtr& out, const cFloatImagePtr& in, const cFloatImagePtr& mask, float a1, float a2, float a3, float fraction) {
    NotBuiltYet("LagrangeMultiplierConstraintApply");
}

void cImageMathGeneric::GoodsRoughnessPenalty(const cFloatImagePtr& estimate, const cFloatImagePtr& reference, const cFloatImagePtr& work, const float& beta) {
    NotBuiltYet("GoodsRoughnessPenalty");
}

float cImageMathGeneric::EstimateForegroundThreshold(const cFloatImagePtr& image) {
    NotBuiltYet("EstimateForegroundThreshold");
}

void cImageMathGeneric::FindMaxMinPositionOfMaximumValue(const cFloatImagePtr& image, cImagePosition& upper, cImagePosition& lower) {
    NotBuiltYet("FindMaxMinPositionOfMaximumValue");
}

float cImageMathGeneric::ComputeLogLikelihoodIncreaseByLineSearch(const cFloatImagePtr& data, const cFloatImagePtr& blurred, const cFloatImagePtr& direction, const cFloatImagePtr& work, const float& step, unsigned x0, unsigned xMargin, unsigned y0, unsigned yMargin, unsigned z0, unsigned zMargin) {
    NotBuiltYet("ComputeLogLikelihoodIncreaseByLineSearch");
}

void cImageMathGeneric::CalculateRadialProfile(const cFloatImagePtr& re, const cFloatImagePtr& im, cCountedArray<float> profile) {
    NotBuiltYet("CalculateRadialProfile");
}

void cImageMathGeneric::GeneratePowerSpectrumMask(const cFloatImagePtr& re, const cFloatImagePtr& im, int unused, float fraction) {
    NotBuiltYet("GeneratePowerSpectrumMask");
}

void cImageMathGeneric::ReservedHandleOperation(const cFloatImagePtr& image, void* handle) {
    NotBuiltYet("ReservedHandleOperation");
}

void cImageMathGeneric::FFTShift(const cFloatImagePtr& in, const cFloatImagePtr& work, const cFloatImagePtr& out) {
    NotBuiltYet("FFTShift");
}

void cImageMathGeneric::WienerFilteringImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm, const cFloatImagePtr& hRe, const cFloatImagePtr& hIm, float k, const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) {
    NotBuiltYet("WienerFilteringImage");
}

int cImageMathGeneric::CalculateStatisticsByMask(const cFloatImagePtr& image, const cFloatImagePtr& mask, float dx, float dy, cCountedArray<float> histogram, cImageMathStatistics* statistics) {
    NotBuiltYet("CalculateStatisticsByMask");
}

int cImageMathGeneric::FloodFillImage(const cFloatImagePtr& image, int unused, int seedX, int seedY, float value) {
    NotBuiltYet("FloodFillImage");
}

void cImageMathGeneric::LogicalANDImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("LogicalANDImage");
}

void cImageMathGeneric::LogicalORImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("LogicalORImage");
}

void cImageMathGeneric::LogicalXORImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("LogicalXORImage");
}

void cImageMathGeneric::TransposeImage(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    NotBuiltYet("TransposeImage");
}

} // namespace Ovidane
