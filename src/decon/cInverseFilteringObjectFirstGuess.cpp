#include "decon/cInverseFilteringObjectFirstGuess.h"

#include "core/cException.h"
#include "decon/cDeconAlgorithm.h"
#include "decon/cImageNonNegativityCompressionConstraint.h"
#include "decon/cInverseFilterOptimization.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cInverseFilteringObjectFirstGuess::cInverseFilteringObjectFirstGuess() {
    SetObjectName("cInverseFilteringObjectFirstGuess");
}

void cInverseFilteringObjectFirstGuess::Apply(cFloatImagePtr& psf, cFloatImagePtr& original,
                                              cFloatImagePtr& object) {
    Guard([&] {
        if (psf.IsNull() || original.IsNull() || object.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!(psf->GetDimensions() == original->GetDimensions()) ||
            !(object->GetDimensions() == original->GetDimensions()))
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
        if (mAlgorithm == nullptr)
            Fail("NULL algorithm in Apply", OVD_ERR_PARAMETER);

        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        cInverseFilterOptimization filter;
        cImageNonNegativityCompressionConstraint compression(
            static_cast<float>(math->SumImage(original)));

        cCountedPtr<cDeconLog> log = mAlgorithm->GetLog();
        cDeconParameter& p = log->GetParameters();
        p.SetBool(DEC_BPARAMS_IS_TLB,
                  p.GetFlag(DEC_FPARAMS_MODALITY) == DEC_FLAG_MOD_TL_BRIGHTFIELD);
        filter.SetSubPixelFactors(static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR)),
                                  static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR)));
        compression.SetTransmittedLight(p.GetBool(DEC_BPARAMS_IS_TLB));
        filter.SetSpacing(p.GetReal(DEC_RPARAMS_X_SPACING), p.GetReal(DEC_RPARAMS_Y_SPACING),
                          p.GetReal(DEC_RPARAMS_Z_SPACING));
        filter.SetRegularizationFactor(p.GetReal(DEC_RPARAMS_GOODS_FACTOR));
        // A start needs no class of its own: K comes from the data.
        filter.SetNoiseLevel(DEC_FLAG_NOISE_LEVEL_ESTIMATE);
        // The estimate of K looks at the measured planes only, not at the guard bands.
        const int32_t lastPlane = static_cast<int32_t>(object->GetSizeZ()) -
                                  p.GetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND) - 1;
        filter.SetZRange(static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND)),
                         static_cast<uint32_t>(lastPlane));

        if (mPsfFirstGuess) {
            cFloatImagePtr ownPsf;
            mPsfFirstGuess->Apply(ownPsf, original);
            filter.Apply(object, original, ownPsf);
        } else {
            filter.Apply(object, original, psf);
        }
        compression.Apply(object);

        if (compression.IsTransmittedLight())
            math->SubtractImageByConstantAndThreshold(original, compression.GetPedestal(), 0.0f,
                                                      0.0f, 1);
    });
}

} // namespace Ovidane
