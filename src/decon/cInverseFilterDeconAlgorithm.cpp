#include "decon/cInverseFilterDeconAlgorithm.h"

#include <string>

#include "decon/cImageNonNegativityLinearCompressionConstraint.h"
#include "decon/cIterativeStopCriterion.h"
#include "decon/cMinimumIntensityBackgroundSubtractionConstraint.h"
#include "decon/cSpecifiedValueBackgroundSubtractionConstraint.h"
#include "io/cUnmanagedRawFileReader.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cInverseFilterDeconAlgorithm::cInverseFilterDeconAlgorithm(cCountedPtr<cDeconLog> log)
    : cFrameworkDeconAlgorithm(std::move(log)) {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        ReadGeometry();

        // The filter needs the original no more once it has its transform, so the result
        // may take its place: one volume of memory less.
        MakeFramework(true);

        mInverseOptimization = new cInverseFilterOptimization();
        mInverseOptimization->SetSpacing(mSpacing[0], mSpacing[1], mSpacing[2]);
        mInverseOptimization->SetRegularizationFactor(p.GetReal(DEC_RPARAMS_GOODS_FACTOR));
        mInverseOptimization->SetNoiseLevel(p.GetFlag(DEC_FPARAMS_NOISE_LEVEL));
        // The estimate of K looks at the interior planes only: the guard bands hold
        // interpolated data, not measured ones.
        const int32_t lastPlane =
            p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH) - p.GetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND) - 1;
        mInverseOptimization->SetZRange(
            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND)),
            static_cast<uint32_t>(lastPlane));
        mOptimization = mInverseOptimization;
        // A run that estimates for the whole stack estimates K once, from the stack's plane,
        // in its first subvolume; the others take that K as a given factor.
        if (p.GetBool(DEC_BPARAMS_STACK_ESTIMATES) &&
            p.GetFlag(DEC_FPARAMS_NOISE_LEVEL) == DEC_FLAG_NOISE_LEVEL_ESTIMATE) {
            const float stackK = p.GetReal(DEC_RPARAMS_STACK_REGULARIZATION);
            if (stackK > 0.0f) {
                mInverseOptimization->SetNoiseLevel(DEC_FLAG_NOISE_LEVEL_OTHER);
                mInverseOptimization->SetRegularizationFactor(stackK);
            } else {
                mEstimatesStackK = !p.GetString(DEC_SPARAMS_STACK_PLANE_FILE).empty();
            }
        }

        // A PSF file one pixel wide takes its plane distance from the stack.
        if (p.GetFlag(DEC_FPARAMS_PSF_GUESS_METHOD) == DEC_FLAG_PGM_PSF_INPUT)
            mPsfFirstGuess = MakeLoadFilePsfFirstGuess(true);
        else
            mPsfFirstGuess = MakeTheoreticalPsfFirstGuess(1.0f);
        MakePreviews(mPreview, mPsfPreview);

        // One pass, and the result saved at its end.
        p.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, 1);
        p.SetInt(DEC_IPARAMS_SAVE_INTERVAL, 1);
        mStopCriterion = new cIterativeStopCriterion(mLog);
    });
    SetObjectName("cInverseFilterDeconAlgorithm");
}

cInverseFilterDeconAlgorithm::~cInverseFilterDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cInverseFilterDeconAlgorithm::UseKeptOriginal(float rawSum) {
    Guard([&] {
        mOriginalKept = true;
        mRawSum = rawSum;
        mIterativeFramework->SetReadsOriginalFile(false);
    });
}

void cInverseFilterDeconAlgorithm::SetUp() {
    Guard([&] {
        const cDeconParameter& p = mLog->GetParameters();
        cIterativeDeconFramework& framework = *mIterativeFramework;
        // The original image is read before any constraint touches it, so the sum taken
        // below is the sum of the raw data.
        framework.Load();
        framework.SetPsfFirstGuess(mPsfFirstGuess);
        framework.SetOptimization(mOptimization);
        framework.SetStopCriterion(mStopCriterion);

        // Transmitted light carries its information in the background itself.
        if (!p.GetBool(DEC_BPARAMS_IS_TLB)) {
            const int32_t method = p.GetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD);
            if (method == 0 || method == DEC_FLAG_DCM_MANUAL_INPUT)
                framework.AddImagePreprocessing(new cSpecifiedValueBackgroundSubtractionConstraint(
                    p.GetReal(DEC_RPARAMS_DARKCURRENT)));
            else
                framework.AddImagePreprocessing(
                    new cMinimumIntensityBackgroundSubtractionConstraint());
        }

        // The filter expects a PSF of sum 1, so that the zero frequency keeps the image's
        // brightness; a measured PSF is cleaned first when the log asks for it.
        AddPsfPreparation(framework, 0.0f);

        if (mEstimatesStackK) {
            const cImageDimensions plane{
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_STACK_PLANE_WIDTH)),
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_STACK_PLANE_HEIGHT)), 1};
            const cFloatImagePtr stackPlane(new cOvdImage<float>(plane, GetObjectName()));
            const std::string& file = p.GetString(DEC_SPARAMS_STACK_PLANE_FILE);
            cUnmanagedRawFileReader reader(file);
            const bool complete = reader.Open() && reader.Read(stackPlane);
            reader.Close();
            if (!complete)
                Fail("Short read of " + file + " in SetUp", OVD_ERR_PARAMETER);
            mInverseOptimization->UseStackPlane(stackPlane);
        }

        // For the whole stack the blending makes the result non-negative, after it has
        // joined the subvolumes.
        if (!p.GetBool(DEC_BPARAMS_IS_PHASEOBJECT) && !p.GetBool(DEC_BPARAMS_STACK_ESTIMATES)) {
            if (!mOriginalKept) {
                cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
                mRawSum = static_cast<float>(math->SumImage(framework.GetOriginalImage()));
            }
            framework.AddImageConstraint(
                new cImageNonNegativityLinearCompressionConstraint(mRawSum));
        }

        framework.SetPreview(mPreview);
    });
}

void cInverseFilterDeconAlgorithm::Prepare() {
    Guard([&] {
        mPsfFirstGuess->SetFileName(mLog->GetParameters().GetString(DEC_SPARAMS_INPUT_PSF_FILE));
        mOptimization->Initialize();
        mStopCriterion->Initialize();
    });
}

void cInverseFilterDeconAlgorithm::Run() {
    Guard([&] {
        mIterativeFramework->Prepare();
        mIterativeFramework->Iterate();
        if (mEstimatesStackK) {
            // The K of the whole stack, for the other subvolumes to take as it is; the plane
            // is needed no more.
            mLog->GetParameters().SetReal(DEC_RPARAMS_STACK_REGULARIZATION,
                                          mInverseOptimization->GetAppliedK());
            mInverseOptimization->UseStackPlane(cFloatImagePtr());
        }
    });
}

} // namespace Ovidane
