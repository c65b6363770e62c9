#include "core/DeconKeys.h"

namespace Ovidane {

cDecFlagRange DecFlagAcceptedRange(DecFlagKey key) {
    // Indexed by key; the gaps between the ranges belong to no key.
    static constexpr cDecFlagRange kRanges[kDecFlagKeyCount] = {
        {0, -1},  // key 0 is unused
        {75, 78}, // DEC_FPARAMS_DATATYPE
        {2, 15},  // DEC_FPARAMS_MODALITY
        {18, 22}, // DEC_FPARAMS_INITIAL_IMAGE_SOURCE
        {25, 28}, // DEC_FPARAMS_DECON_METHOD
        {31, 34}, // DEC_FPARAMS_INITIAL_GUESS_METHOD
        {37, 40}, // DEC_FPARAMS_PSF_GUESS_METHOD
        {43, 44}, // DEC_FPARAMS_PSF_GENERATION_SOURCE
        {47, 47}, // DEC_FPARAMS_NOISE_SMOOTHING_METHOD
        {57, 59}, // DEC_FPARAMS_FREQUENCY_CON_METHOD
        {62, 64}, // DEC_FPARAMS_STOPPING_CRITERION
        {67, 68}, // DEC_FPARAMS_DARK_CURRENT_METHOD
        {71, 72}, // DEC_FPARAMS_SUBVOLUME_METHOD
        {50, 54}, // DEC_FPARAMS_NOISE_LEVEL
        {81, 86}, // DEC_FPARAMS_PREVIEW_METHOD
        {89, 90}, // DEC_FPARAMS_PSF_PREVIEW_METHOD
    };
    if (key < 1 || key >= kDecFlagKeyCount)
        return kRanges[0];
    return kRanges[key];
}

const char* DecFlagValueName(int32_t value) {
#define OVD_FLAG_NAME(flag)                                                                        \
    case flag:                                                                                     \
        return #flag
    switch (value) {
        OVD_FLAG_NAME(DEC_FLAG_DTF_UCHAR_8BIT);
        OVD_FLAG_NAME(DEC_FLAG_DTF_UINT_16BIT);
        OVD_FLAG_NAME(DEC_FLAG_DTF_UINT_32BIT);
        OVD_FLAG_NAME(DEC_FLAG_DTF_FLOAT_32BIT);
        OVD_FLAG_NAME(DEC_FLAG_MOD_CONFOCAL);
        OVD_FLAG_NAME(DEC_FLAG_MOD_SPIN_DISK_CF);
        OVD_FLAG_NAME(DEC_FLAG_MOD_MULTI_PHOTON);
        OVD_FLAG_NAME(DEC_FLAG_MOD_WF_FLUORESCENCE);
        OVD_FLAG_NAME(DEC_FLAG_MOD_TL_BRIGHTFIELD);
        OVD_FLAG_NAME(DEC_FLAG_MOD_SLO_ICG_FA);
        OVD_FLAG_NAME(DEC_FLAG_MOD_SLO_REFLIGHT);
        OVD_FLAG_NAME(DEC_FLAG_MOD_DIC);
        OVD_FLAG_NAME(DEC_FLAG_MOD_GENERIC);
        OVD_FLAG_NAME(DEC_FLAG_DM_EXPECTATION_MAX);
        OVD_FLAG_NAME(DEC_FLAG_DM_POWER_ACCEL);
        OVD_FLAG_NAME(DEC_FLAG_DM_EXTRAPOLATION_ACCEL);
        OVD_FLAG_NAME(DEC_FLAG_DM_GOLDS);
        OVD_FLAG_NAME(DEC_FLAG_IGM_ORIGINAL_DATA);
        OVD_FLAG_NAME(DEC_FLAG_IGM_FILTERED_ORIGINAL);
        OVD_FLAG_NAME(DEC_FLAG_IGM_FLAT_SHEET);
        OVD_FLAG_NAME(DEC_FLAG_IGM_OBJECT_INPUT);
        OVD_FLAG_NAME(DEC_FLAG_PGM_THEORETICAL_EST);
        OVD_FLAG_NAME(DEC_FLAG_PGM_FLAT_SHEET);
        OVD_FLAG_NAME(DEC_FLAG_PGM_AUTOCORRELATION);
        OVD_FLAG_NAME(DEC_FLAG_PGM_PSF_INPUT);
        OVD_FLAG_NAME(DEC_FLAG_PSFSRC_CALCULATED);
        OVD_FLAG_NAME(DEC_FLAG_PSFSRC_MEASURED);
        OVD_FLAG_NAME(DEC_FLAG_NSM_GAUSSIAN);
        OVD_FLAG_NAME(DEC_FLAG_NOISE_LEVEL_LOW);
        OVD_FLAG_NAME(DEC_FLAG_NOISE_LEVEL_MEDIUM);
        OVD_FLAG_NAME(DEC_FLAG_NOISE_LEVEL_HIGH);
        OVD_FLAG_NAME(DEC_FLAG_NOISE_LEVEL_OTHER);
        OVD_FLAG_NAME(DEC_FLAG_FCM_AUTO_SELECTION);
        OVD_FLAG_NAME(DEC_FLAG_FCM_THEORETICAL_LIMIT);
        OVD_FLAG_NAME(DEC_FLAG_FCM_DETECTED_LIMIT);
        OVD_FLAG_NAME(DEC_FLAG_SC_ALWAYS);
        OVD_FLAG_NAME(DEC_FLAG_SC_ITERATIVE);
        OVD_FLAG_NAME(DEC_FLAG_DCM_AUTO_CALCULATION);
        OVD_FLAG_NAME(DEC_FLAG_DCM_MANUAL_INPUT);
        OVD_FLAG_NAME(DEC_FLAG_SVM_DYNAMIC);
        OVD_FLAG_NAME(DEC_FLAG_SVM_STATIC);
    case DEC_FLAG_IIS_VOLUME:
        return "cVolumeInitialImageSource";
    case DEC_FLAG_IIS_SLICE:
        return "cSliceInitialImageSource";
    case DEC_FLAG_IIS_MAXIMUM_PROJECTION:
        return "cMaximumProjectionInitialImageSource";
    case DEC_FLAG_IIS_MINIMUM_PROJECTION:
        return "cMinimumProjectionInitialImageSource";
    case DEC_FLAG_IIS_SUM_PROJECTION:
        return "cSumProjectionInitialImageSource";
    case DEC_FLAG_PM_3D_PREVIEW:
        return "c3DPreview";
    case DEC_FLAG_PM_3D_PREVIEW_WITH_FILE:
        return "c3DPreviewWithFile";
    case DEC_FLAG_PM_2D_PREVIEW:
        return "c2DPreview";
    case DEC_FLAG_PM_2D_PREVIEW_WITH_FILE:
        return "c2DPreviewWithFile";
    case DEC_FLAG_PM_2D_PREVIEW_WITH_MAX_PROJECTION_FILE:
        return "c2DPreviewWithMaxProjectionFile";
    case DEC_FLAG_PPM_2D_PSF_PREVIEW:
        return "c2DPSFPreview";
    case DEC_FLAG_PPM_2D_PSF_PREVIEW_WITH_FILE:
        return "c2DPSFPreviewWithFile";
    default:
        // Working values without a name (54, 64, 83, modality 2 and 11 to 14) end here too.
        return "<invalid>";
    }
#undef OVD_FLAG_NAME
}

} // namespace Ovidane
