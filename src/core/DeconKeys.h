#pragma once
// Keys of the parameter store and the values of its flag keys. The numbers are fixed: the
// text dump, the run drivers and every consumer of a cDeconLog agree on them. Key 0 of
// every enumeration is unused.
#include <cstdint>

namespace Ovidane {

enum DecStringKey : int32_t {
    DEC_SPARAMS_ORIGINAL_FILE = 1, // float raw stack that the operation restores
    DEC_SPARAMS_INPUT_PSF_FILE = 2,
    DEC_SPARAMS_OUTPUT_PSF_FILE = 3,
    DEC_SPARAMS_OUTPUT_IMAGE_FILE = 4,
    DEC_SPARAMS_OUTPUT_FILE_5 = 5, // not used by the run path
    DEC_SPARAMS_TEMP_DIRECTORY = 6,
    DEC_SPARAMS_OUTPUT_FILE_7 = 7,     // not used by the run path
    DEC_SPARAMS_BLEND_SOURCE_FILE = 8, // written by subvolume set-up, read by blending
    DEC_SPARAMS_INPUT_OBJECT_FILE = 9, // object first guess file
    DEC_SPARAMS_PREVIEW_FILE = 10,
    DEC_SPARAMS_PSF_PREVIEW_FILE = 11,
    // The whole stack summed over z as the subvolumes receive it, padded as an uncut run
    // pads it: one plane, DEC_IPARAMS_STACK_PLANE_WIDTH by _HEIGHT. The regularisation that
    // a run estimates is estimated from it, once for the whole stack.
    DEC_SPARAMS_STACK_PLANE_FILE = 12,
};
inline constexpr int kDecStringKeyCount = 13;

enum DecIntKey : int32_t {
    // Keys 1 to 3 hold the whole stack's size until subvoluming replaces them with the
    // size of one subvolume.
    DEC_IPARAMS_SUBVOLUME_WIDTH = 1,
    DEC_IPARAMS_SUBVOLUME_HEIGHT = 2,
    DEC_IPARAMS_SUBVOLUME_DEPTH = 3,
    DEC_IPARAMS_SUBVOLUME_XYGUARDBAND = 4,
    DEC_IPARAMS_SUBVOLUME_ZGUARDBAND = 5,
    DEC_IPARAMS_SUBVOLUME_OVERLAP = 6,
    DEC_IPARAMS_SUBVOLUME_XINDEX = 7,
    DEC_IPARAMS_SUBVOLUME_YINDEX = 8,
    DEC_IPARAMS_SUBVOLUME_ZINDEX = 9,
    DEC_IPARAMS_SUBVOLUME_X1GUARDBAND = 10,
    DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND = 11,
    DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND = 12,
    DEC_IPARAMS_SUBVOLUME_X2GUARDBAND = 13,
    DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND = 14,
    DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND = 15,
    DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES = 16,
    DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES = 17,
    DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES = 18,
    DEC_IPARAMS_SUBVOLUME_MEMORYSIZE = 19,
    DEC_IPARAMS_PSF_WIDTH = 20,
    DEC_IPARAMS_PSF_HEIGHT = 21,
    DEC_IPARAMS_PSF_DEPTH = 22,
    DEC_IPARAMS_TOTAL_ITERATIONS = 23,
    DEC_IPARAMS_CURRENT_ITERATION = 24,
    DEC_IPARAMS_GOLDS_SMOOTH_ITER = 25,
    DEC_IPARAMS_SUBPIXEL_XY_FACTOR = 26,
    DEC_IPARAMS_SUBPIXEL_Z_FACTOR = 27,
    DEC_IPARAMS_SAVE_INTERVAL = 28,
    DEC_IPARAMS_PSF_SAVE_INTERVAL = 29,
    DEC_IPARAMS_BINFACTOR = 30,
    DEC_IPARAMS_SUBVOLUME_EXTENDED_WIDTH = 31,
    DEC_IPARAMS_SUBVOLUME_EXTENDED_HEIGHT = 32,
    DEC_IPARAMS_SUBVOLUME_EXTENDED_DEPTH = 33,
    DEC_IPARAMS_SUBVOLUME_STARTX_IN_EXSUBVOLUME = 34,
    DEC_IPARAMS_SUBVOLUME_STARTY_IN_EXSUBVOLUME = 35,
    DEC_IPARAMS_SUBVOLUME_STARTZ_IN_EXSUBVOLUME = 36,
    DEC_IPARAMS_SUBVOLUME_SETUP_37 = 37, // not used by the run path
    DEC_IPARAMS_MLEM2D_BLIND_38 = 38,    // read by the 2D ML-EM restoration
    DEC_IPARAMS_MLEM2D_NONBLIND_39 = 39, // read by the 2D ML-EM restoration
    DEC_IPARAMS_SLICE_INDEX = 40,        // read by the slice initial image source
    DEC_IPARAMS_STACK_PLANE_WIDTH = 41,  // size of the plane of DEC_SPARAMS_STACK_PLANE_FILE
    DEC_IPARAMS_STACK_PLANE_HEIGHT = 42,
};
inline constexpr int kDecIntKeyCount = 43;

enum DecInt64Key : int32_t {
    DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE = 1, // memory budget of the subvolume cut, bytes
};
inline constexpr int kDecInt64KeyCount = 2;

enum DecRealKey : int32_t {
    DEC_RPARAMS_NUMERICAL_APERTURE = 1,
    DEC_RPARAMS_REFRACTION_INDEX = 2,
    DEC_RPARAMS_EMISSION_WAVELENGTH = 3,
    DEC_RPARAMS_X_SPACING = 4,
    DEC_RPARAMS_Y_SPACING = 5,
    DEC_RPARAMS_Z_SPACING = 6,
    DEC_RPARAMS_PSF_X_SPACING = 7,
    DEC_RPARAMS_PSF_Y_SPACING = 8,
    DEC_RPARAMS_PSF_Z_SPACING = 9,
    DEC_RPARAMS_MINIMUM_RADIUS = 10,
    DEC_RPARAMS_GOODS_FACTOR = 11,
    DEC_RPARAMS_AXIAL_CONSTRAINT = 12,
    DEC_RPARAMS_SPHERICAL_ABERRATION = 13,
    DEC_RPARAMS_DARKCURRENT = 14,
    DEC_RPARAMS_STRCH_FACTOR = 15,
    DEC_RPARAMS_GOLDS_SMOOTH_GAUSS = 16,
    DEC_RPARAMS_IMAGE_MINIMUM = 17, // written by the framework, read by previews and blending
    DEC_RPARAMS_IMAGE_MAXIMUM = 18,
    // The regularisation K estimated for the whole stack; 0 until the first subvolume has
    // estimated it, after which the others take it as it is.
    DEC_RPARAMS_STACK_REGULARIZATION = 19,
    // The sum of the whole stack as the subvolumes receive it, for the non-negativity step
    // that the blending applies to the whole stack.
    DEC_RPARAMS_STACK_SUM = 20,
    // The sample of the exact PSF model: its refractive index and the focus's depth below
    // the coverslip (micrometres).
    DEC_RPARAMS_SAMPLE_INDEX = 21,
    DEC_RPARAMS_FOCUS_DEPTH = 22,
};
inline constexpr int kDecRealKeyCount = 23;

enum DecFlagKey : int32_t {
    DEC_FPARAMS_DATATYPE = 1,
    DEC_FPARAMS_MODALITY = 2,
    DEC_FPARAMS_INITIAL_IMAGE_SOURCE = 3,
    DEC_FPARAMS_DECON_METHOD = 4,
    DEC_FPARAMS_INITIAL_GUESS_METHOD = 5,
    DEC_FPARAMS_PSF_GUESS_METHOD = 6,
    DEC_FPARAMS_PSF_GENERATION_SOURCE = 7,
    DEC_FPARAMS_NOISE_SMOOTHING_METHOD = 8,
    DEC_FPARAMS_FREQUENCY_CON_METHOD = 9,
    DEC_FPARAMS_STOPPING_CRITERION = 10,
    DEC_FPARAMS_DARK_CURRENT_METHOD = 11,
    DEC_FPARAMS_SUBVOLUME_METHOD = 12,
    DEC_FPARAMS_NOISE_LEVEL = 13,
    DEC_FPARAMS_PREVIEW_METHOD = 14,
    DEC_FPARAMS_PSF_PREVIEW_METHOD = 15,
};
inline constexpr int kDecFlagKeyCount = 16;

enum DecBoolKey : int32_t {
    DEC_BPARAMS_IS_CONFOCAL = 1,
    DEC_BPARAMS_IS_TLB = 2, // transmitted-light brightfield
    DEC_BPARAMS_IS_PHASEOBJECT = 3,
    DEC_BPARAMS_BANDLIMIT_OBSERVE = 4,
    DEC_BPARAMS_PREPROCESS_PSF = 5,
    DEC_BPARAMS_PSF_HIGH_NA = 6,
    DEC_BPARAMS_PSF_EMPIRICAL = 7,
    DEC_BPARAMS_VECTOR_EXTRAPOLATION = 8,
    DEC_BPARAMS_SUBVOLUME_XYMONTAGE = 9,
    DEC_BPARAMS_SUBVOLUME_ZMONTAGE = 10,
    DEC_BPARAMS_PSF_CONSTRAINTS = 11,
    DEC_BPARAMS_INTENSITY_CORRECTION = 12,
    DEC_BPARAMS_ACCELERATION_SA_DETECTION = 13, // shortens the aberration search
    DEC_BPARAMS_SAVE_PSF = 14,
    DEC_BPARAMS_ADAPTIVE_PSF = 15,
    DEC_BPARAMS_IS_2D = 16,                // the stack has one slice
    DEC_BPARAMS_DELETE_ORIGINAL_FILE = 17, // the algorithm deletes the file of key 1 when it goes
    DEC_BPARAMS_RESERVED_18 = 18,          // has a slot, no reader
    // What describes the whole stack is estimated once for it, not per subvolume: the
    // background, the regularisation and the non-negativity step (see cSubvoluming).
    DEC_BPARAMS_STACK_ESTIMATES = 19,
    // A measured PSF is brought to the image's grid about its centre and padded with zeros
    // (cCentredFilePsfFirstGuess), so a run restores with the PSF it was given.
    DEC_BPARAMS_PSF_AS_MEASURED = 20,
    // The theoretical PSF is the exact scalar model (cExactPsfFirstGuess) in place of the
    // specified one.
    DEC_BPARAMS_PSF_EXACT_MODEL = 21,
};
inline constexpr int kDecBoolKeyCount = 22;

// Values of the flag keys. They are disjoint across keys, so a value alone tells which
// option it belongs to, and no key takes 0: an unset flag selects no named option.
// Values marked "dumps as <invalid>" are accepted and used, but the text dump has no name
// for them. Values named after a class dump under that class's name.
enum DecFlagValue : int32_t {
    // DEC_FPARAMS_DATATYPE, accepts 75 to 78
    DEC_FLAG_DTF_UCHAR_8BIT = 75,
    DEC_FLAG_DTF_UINT_16BIT = 76,
    DEC_FLAG_DTF_UINT_32BIT = 77,
    DEC_FLAG_DTF_FLOAT_32BIT = 78,

    // DEC_FPARAMS_MODALITY, accepts 2 to 15; 2 and 11 to 14 have no name
    DEC_FLAG_MOD_CONFOCAL = 3,
    DEC_FLAG_MOD_SPIN_DISK_CF = 4,
    DEC_FLAG_MOD_MULTI_PHOTON = 5,
    DEC_FLAG_MOD_WF_FLUORESCENCE = 6,
    DEC_FLAG_MOD_TL_BRIGHTFIELD = 7,
    DEC_FLAG_MOD_SLO_ICG_FA = 8,
    DEC_FLAG_MOD_SLO_REFLIGHT = 9,
    DEC_FLAG_MOD_DIC = 10,
    DEC_FLAG_MOD_GENERIC = 15,

    // DEC_FPARAMS_INITIAL_IMAGE_SOURCE, accepts 18 to 22
    DEC_FLAG_IIS_VOLUME = 18,             // cVolumeInitialImageSource
    DEC_FLAG_IIS_SLICE = 19,              // cSliceInitialImageSource
    DEC_FLAG_IIS_MAXIMUM_PROJECTION = 20, // cMaximumProjectionInitialImageSource
    DEC_FLAG_IIS_MINIMUM_PROJECTION = 21, // cMinimumProjectionInitialImageSource
    DEC_FLAG_IIS_SUM_PROJECTION = 22,     // cSumProjectionInitialImageSource

    // DEC_FPARAMS_DECON_METHOD, accepts 25 to 28
    DEC_FLAG_DM_EXPECTATION_MAX = 25,
    DEC_FLAG_DM_POWER_ACCEL = 26,
    DEC_FLAG_DM_EXTRAPOLATION_ACCEL = 27,
    DEC_FLAG_DM_GOLDS = 28,

    // DEC_FPARAMS_INITIAL_GUESS_METHOD, accepts 31 to 34
    DEC_FLAG_IGM_ORIGINAL_DATA = 31,
    DEC_FLAG_IGM_FILTERED_ORIGINAL = 32,
    DEC_FLAG_IGM_FLAT_SHEET = 33,
    DEC_FLAG_IGM_OBJECT_INPUT = 34,

    // DEC_FPARAMS_PSF_GUESS_METHOD, accepts 37 to 40
    DEC_FLAG_PGM_THEORETICAL_EST = 37,
    DEC_FLAG_PGM_FLAT_SHEET = 38,
    DEC_FLAG_PGM_AUTOCORRELATION = 39,
    DEC_FLAG_PGM_PSF_INPUT = 40,

    // DEC_FPARAMS_PSF_GENERATION_SOURCE, accepts 43 to 44
    DEC_FLAG_PSFSRC_CALCULATED = 43,
    DEC_FLAG_PSFSRC_MEASURED = 44,

    // DEC_FPARAMS_NOISE_SMOOTHING_METHOD, accepts 47
    DEC_FLAG_NSM_GAUSSIAN = 47,

    // DEC_FPARAMS_NOISE_LEVEL, accepts 50 to 54
    DEC_FLAG_NOISE_LEVEL_LOW = 50,
    DEC_FLAG_NOISE_LEVEL_MEDIUM = 51,
    DEC_FLAG_NOISE_LEVEL_HIGH = 52,
    DEC_FLAG_NOISE_LEVEL_OTHER = 53,
    DEC_FLAG_NOISE_LEVEL_ESTIMATE = 54, // estimate the level from the spectra; dumps as <invalid>

    // DEC_FPARAMS_FREQUENCY_CON_METHOD, accepts 57 to 59
    DEC_FLAG_FCM_AUTO_SELECTION = 57,
    DEC_FLAG_FCM_THEORETICAL_LIMIT = 58,
    DEC_FLAG_FCM_DETECTED_LIMIT = 59,

    // DEC_FPARAMS_STOPPING_CRITERION, accepts 62 to 64
    DEC_FLAG_SC_ALWAYS = 62,
    DEC_FLAG_SC_ITERATIVE = 63,
    DEC_FLAG_SC_ITERATIVE_CALLBACK = 64, // cIterativeCallbackStopCriterion; dumps as <invalid>

    // DEC_FPARAMS_DARK_CURRENT_METHOD, accepts 67 to 68
    DEC_FLAG_DCM_AUTO_CALCULATION = 67,
    DEC_FLAG_DCM_MANUAL_INPUT = 68,

    // DEC_FPARAMS_SUBVOLUME_METHOD, accepts 71 to 72
    DEC_FLAG_SVM_DYNAMIC = 71,
    DEC_FLAG_SVM_STATIC = 72,

    // DEC_FPARAMS_PREVIEW_METHOD, accepts 81 to 86
    DEC_FLAG_PM_3D_PREVIEW = 81,                          // c3DPreview
    DEC_FLAG_PM_3D_PREVIEW_WITH_FILE = 82,                // c3DPreviewWithFile
    DEC_FLAG_PM_NONE = 83,                                // creates no preview; dumps as <invalid>
    DEC_FLAG_PM_2D_PREVIEW = 84,                          // c2DPreview
    DEC_FLAG_PM_2D_PREVIEW_WITH_FILE = 85,                // c2DPreviewWithFile
    DEC_FLAG_PM_2D_PREVIEW_WITH_MAX_PROJECTION_FILE = 86, // c2DPreviewWithMaxProjectionFile

    // DEC_FPARAMS_PSF_PREVIEW_METHOD, accepts 89 to 90
    DEC_FLAG_PPM_2D_PSF_PREVIEW = 89,           // c2DPSFPreview
    DEC_FLAG_PPM_2D_PSF_PREVIEW_WITH_FILE = 90, // c2DPSFPreviewWithFile
};

// The values SetFlag accepts for a flag key, both ends inclusive.
struct cDecFlagRange {
    int32_t first;
    int32_t last;
};

// Accepted range of `key`; {0, -1} (empty) for a key outside 1 to 15.
cDecFlagRange DecFlagAcceptedRange(DecFlagKey key);

// The name under which the text dump prints a flag value: the enumerator's spelling, or
// the class name for values named after a class, or "<invalid>" for a value without one.
const char* DecFlagValueName(int32_t value);

} // namespace Ovidane
