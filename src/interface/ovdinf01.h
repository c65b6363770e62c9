/*
 * ovdinf01: restoration of 3D light-microscope stacks by a regularised inverse filter, and
 * estimation of their spherical aberration.
 *
 * The public boundary of the library, usable from C and C++. Everything that crosses it is
 * declared here: the option records, the status callbacks and the five operations.
 *
 * Lengths (spacings, emission wavelength) are in micrometres. File names are narrow strings;
 * an empty string and a null pointer mean the same wherever a name is optional. Every
 * operation runs on the calling thread, calls the status callback on that thread, and
 * returns a 16-bit code (OVD_RESULT_*) when the run has ended.
 *
 * Threads. Restorations and estimates run one at a time in a process: the temporary
 * directory, transform plans and memory pools are process-wide, so a call made while
 * another thread's call runs waits until that one has ended, then runs with its own
 * directory. The wait is as long as the other run. Each call deletes the temporary files it
 * named when it ends, whatever its result; temporary names carry the process id, so
 * processes that share a directory never touch each other's files. The input stack is read
 * where it lies, 8-bit and 16-bit pixels converted to float as they are read, until the
 * restorations have taken what they need; it must stay unchanged until the call returns
 * (the output may name the same file: it is written only after that). A restoration of one
 * subvolume whose temporary files fit into the memory its budget leaves beyond the working
 * images keeps them in memory instead of the directory; the process then keeps that memory
 * (at most those files' size) for the next such run, and a run that cuts its stack gives it
 * back. The last theoretical PSF made is kept likewise, when the memory the budget leaves
 * beyond those files holds it, for the next run with the same optics and padded size. The
 * inverse filter's PSF transform stays in the transforms' own working memory and serves the
 * next subvolume or run whose PSF has the same pixels (recognised by a print of them, see
 * the README), until another operation uses that memory.
 *
 * Record layout: natural alignment, no packing. In a 32-bit build the offsets and sizes
 * noted at each field are the binary format and hold exactly. In a 64-bit build the
 * pointer fields widen to 8 bytes and the fields behind them move accordingly; nothing else
 * changes (see docs/record-layout.md).
 */
#ifndef OVDINF01_H
#define OVDINF01_H

#include <stdint.h>

#if defined(__GNUC__)
#define OVD_API __attribute__((visibility("default")))
#else
#define OVD_API
#endif

/* Calling convention of the exported operations and of the callbacks; empty where the
 * platform has only one. */
#define OVD_CALL

#ifdef __cplusplus
extern "C" {
#endif

/* Return codes of all operations. Codes 3, 6, 7, 8, 10, 11 and 12 are not used. */
enum {
    OVD_RESULT_SUCCESS = 0,
    OVD_RESULT_RUN_FAILED = 1,       /* an exception or a cancel ended the run; output incomplete */
    OVD_RESULT_INVALID_ARGUMENT = 2, /* argument or record refused, or a file check failed */
    OVD_RESULT_OUT_OF_MEMORY = 4,    /* the callback bridge record could not be allocated */
    OVD_RESULT_CANNOT_CREATE_FILE = 5, /* output not creatable, or too little temporary disk */
    OVD_RESULT_CONVERSION_FAILED = 9,  /* input not convertible to float, or unknown pixel type */
    OVD_RESULT_GUARD_BAND_TOO_LARGE = 13,
    OVD_RESULT_OVERLAP_TOO_LARGE = 14,
    OVD_RESULT_WAVELENGTH_OUT_OF_RANGE = 15,
    OVD_RESULT_OPTICS_OUT_OF_RANGE = 16, /* refractive index, aperture, or their ratio */
    OVD_RESULT_XY_SPACING_TOO_LARGE = 17,
    OVD_RESULT_XY_SPACING_TOO_SMALL = 18,
    OVD_RESULT_Z_SPACING_TOO_LARGE = 19,
    OVD_RESULT_Z_SPACING_TOO_SMALL = 20
};

/* The answer of a status callback that lets the run go on; any other answer cancels it. */
enum { OVD_STATUS_CONTINUE = 201 };

/* ovdStructInvFilterImage.nDataType */
enum { OVD_DATATYPE_UINT8 = 0, OVD_DATATYPE_UINT16 = 1, OVD_DATATYPE_FLOAT32 = 2 };

/* Pixel type of the argument-list operations: a different order from nDataType. */
enum { OVD_ARG_PIXEL_FLOAT32 = 0, OVD_ARG_PIXEL_UINT16 = 1, OVD_ARG_PIXEL_UINT8 = 2 };

/* ovdStructInvFilterImage.nModality; every other value is refused. */
enum { OVD_MODALITY_WIDEFIELD_FLUORESCENCE = 4, OVD_MODALITY_TL_BRIGHTFIELD = 5 };

/* Noise level of the argument-list operations. */
enum { OVD_NOISE_AUTOMATIC = 0, OVD_NOISE_LOW = 1, OVD_NOISE_MEDIUM = 2, OVD_NOISE_HIGH = 3 };

/* ovdStructInvFilterStatus.sStage */
enum {
    OVD_STAGE_PREPARATION = 0,      /* preparation of subvolumes, aberration search steps */
    OVD_STAGE_INITIALISED = 102,    /* a first guess or an initial constraint is done */
    OVD_STAGE_STEP_DONE = 106,      /* a step of the iteration is done */
    OVD_STAGE_ITERATION_START = 136 /* start of an iteration; also a subvolume's last report */
};

/* The input stack. Read only. 64 bytes in a 32-bit build. */
typedef struct ovdStructInvFilterImage {
    const char* pszFile;          /*  0: input raw stack file */
    const char* pszFileAlternate; /*  4: taken only when pszFile is null */
    uint32_t nReserved[3];        /*  8: never read */
    uint32_t nDataType;           /* 20: OVD_DATATYPE_* */
    uint32_t nModality;           /* 24: OVD_MODALITY_* */
    int16_t sWidth;               /* 28: pixels in x */
    int16_t sHeight;              /* 30: pixels in y */
    int16_t sDepth;               /* 32: slices in z */
    int16_t sExtent4;             /* 34: must lie in 1 to 32767; no other effect */
    float fXSpacing;              /* 36 */
    float fYSpacing;              /* 40 */
    float fZSpacing;              /* 44 */
    float fNumericalAperture;     /* 48 */
    float fRefractiveIndex;       /* 52: of the immersion medium */
    float fEmissionWavelength;    /* 56 */
    float fSphericalAberration;   /* 60: for the theoretical PSF */
} ovdStructInvFilterImage;

/* A PSF file. As input: a measured PSF. As output: the file that receives the PSF used;
 * on success the library writes that file's geometry back into the record.
 * 36 bytes in a 32-bit build. */
typedef struct ovdStructInvFilterPsf {
    const char* pszFile;          /*  0: a non-null empty string counts as no file */
    const char* pszFileAlternate; /*  4: taken only when pszFile is null */
    uint32_t nReserved;           /*  8: never read */
    int16_t sWidth;               /* 12 */
    int16_t sHeight;              /* 14 */
    int16_t sDepth;               /* 16 */
                                  /* 18: 2 bytes of padding */
    float fXSpacing;              /* 20 */
    float fYSpacing;              /* 24 */
    float fZSpacing;              /* 28 */
    uint32_t nDataType;           /* 32: 0 or 1; checked on the input record only */
} ovdStructInvFilterPsf;

/* Standard options; ovdInitStructInvFilterOpsStd sets the defaults. 28 bytes in a 32-bit
 * build. */
typedef struct ovdStructInvFilterOpsStd {
    const char* pszOutputFile;    /*  0: receives the restored stack */
    const char* pszTempDirectory; /*  4: directory of all temporary files */
    uint8_t bPhaseObject;         /*  8: non-zero: the object is a phase object */
                                  /*  9: 3 bytes of padding */
    uint32_t nReserved[4];        /* 12: cleared by the initialiser, never read */
} ovdStructInvFilterOpsStd;

/* Expert options; ovdInitStructInvFilterOpsExp sets the defaults. 36 bytes. */
typedef struct ovdStructInvFilterOpsExp {
    float fNoiseFactor;    /*  0: regularisation level; 0 = automatic; default 2e-5 */
    float fMemoryPercent;  /*  4: 0 to 100; default 100 */
    int16_t sXYGuardBand;  /*  8: subvolume guard band in x and y, pixels; default 10 */
    int16_t sZGuardBand;   /* 10: subvolume guard band in z, slices; default 6 */
    int16_t sOverlap;      /* 12: subvolume overlap, pixels; default 10 */
    int16_t sReserved;     /* 14: range checked, no other effect; default 4 */
    uint8_t bXYMontage;    /* 16: non-zero: montage subvolumes in x and y; default 1 */
    uint8_t bReserved;     /* 17: no effect; default 0 */
                           /* 18: 2 bytes of padding */
    uint32_t nReserved[4]; /* 20: cleared by the initialiser, never read */
} ovdStructInvFilterOpsExp;

/* Progress of a run. Owned by the library and valid only during a callback. 20 bytes. */
typedef struct ovdStructInvFilterStatus {
    float fPercentDone;      /*  0: progress of the whole run, at most 100 */
    float fMinutesLeft;      /*  4: time estimate */
    int16_t sIteration;      /*  8: current iteration or step */
    int16_t sIterationCount; /* 10: total of that count */
    int16_t sSubvolume;      /* 12: current subvolume, from 1 */
    int16_t sSubvolumeCount; /* 14: number of subvolumes */
    int16_t sStage;          /* 16: OVD_STAGE_* */
                             /* 18: 2 bytes of padding */
} ovdStructInvFilterStatus;

/* Status callback of the record form. Answer OVD_STATUS_CONTINUE to go on; any other
 * answer cancels the run. An exception escaping it is ignored and counts as a go-on. */
typedef uint16_t(OVD_CALL* ovdStatusCallback)(ovdStructInvFilterStatus* status, void* userData);

/* Status callback of the argument-list forms: the 16-bit values arrive zero-extended to
 * 32 bits. Same answers as ovdStatusCallback. */
typedef uint16_t(OVD_CALL* ovdHostStatusCallback)(void* userData, uint32_t sStage,
                                                  float fPercentDone, uint32_t sSubvolumeCount,
                                                  uint32_t sSubvolume, float fMinutesLeft);

/* Clears the record to the standard defaults; returns 0. */
OVD_API uint16_t OVD_CALL ovdInitStructInvFilterOpsStd(ovdStructInvFilterOpsStd* ops);

/* Sets the expert defaults; returns 0. */
OVD_API uint16_t OVD_CALL ovdInitStructInvFilterOpsExp(ovdStructInvFilterOpsExp* ops);

/* Restores the stack of `image` into stdOptions->pszOutputFile. psfIn, psfOut and callback
 * may be null; both option records must be valid. */
OVD_API uint16_t OVD_CALL ovd3dInverseFilter(const ovdStructInvFilterImage* image,
                                             const ovdStructInvFilterPsf* psfIn,
                                             ovdStructInvFilterPsf* psfOut,
                                             const ovdStructInvFilterOpsStd* stdOptions,
                                             const ovdStructInvFilterOpsExp* expOptions,
                                             ovdStatusCallback callback, void* userData);

/* The same run as ovd3dInverseFilter, as a flat list of 40 arguments. The user data
 * (place 39) is pointer-sized, which is 32 bits in the 32-bit module. */
OVD_API uint16_t OVD_CALL
DLL_OVD_3DIF(const char* inputFile, const char* outputFile, const char* tempDirectory,   /* 0-2 */
             int16_t width, int16_t height, int16_t depth,                               /* 3-5 */
             float xSpacing, float ySpacing, float zSpacing,                             /* 6-8 */
             float numericalAperture, float refractiveIndex, float emissionWavelength,   /* 9-11 */
             uint16_t phaseObject, uint16_t brightfield, uint32_t reserved14,            /* 12-14 */
             int16_t xyGuardBand, int16_t zGuardBand, int16_t overlap,                   /* 15-17 */
             uint16_t xyMontage, uint16_t pixelType, float sphericalAberration,          /* 18-20 */
             uint16_t noiseLevel, uint16_t reservedFlag, uint16_t reserved23,            /* 21-23 */
             const char* psfFile, int16_t psfWidth, int16_t psfHeight, int16_t psfDepth, /* 24-27 */
             float psfXSpacing, float psfYSpacing, float psfZSpacing,                    /* 28-30 */
             const char* outputPsfFile,                                                  /* 31 */
             int16_t* outPsfWidth, int16_t* outPsfHeight, int16_t* outPsfDepth,          /* 32-34 */
             float* outPsfXSpacing, float* outPsfYSpacing, float* outPsfZSpacing,        /* 35-37 */
             ovdHostStatusCallback callback, void* userData);                            /* 38-39 */

/* Estimates the spherical aberration of a stack between lowerLimit and upperLimit and
 * writes it to *result; 27 arguments. */
OVD_API uint16_t OVD_CALL ovd3dInverseFilterDetectSA(
    const char* inputFile, const char* tempDirectory,                         /* 0-1 */
    int16_t width, int16_t height, int16_t depth,                             /* 2-4 */
    float xSpacing, float ySpacing, float zSpacing,                           /* 5-7 */
    float numericalAperture, float refractiveIndex, float emissionWavelength, /* 8-10 */
    uint16_t phaseObject, uint16_t brightfield, uint32_t reserved13,          /* 11-13 */
    int16_t xyGuardBand, int16_t zGuardBand, int16_t overlap,                 /* 14-16 */
    uint16_t xyMontage, uint16_t pixelType,                                   /* 17-18 */
    float lowerLimit, float upperLimit, float* result,                        /* 19-21 */
    uint16_t noiseLevel, uint16_t reserved23, uint16_t reservedFlag,          /* 22-24 */
    ovdHostStatusCallback callback, void* userData);                          /* 25-26 */

/* ---- Extensions for hosts ------------------------------------------------------------
 * Additive to the five operations above; none of them changes what those do.
 *
 * Message lines. The library writes timing, status and memory report lines, each ending in
 * a line feed, to the process's standard output by default. A host can take them instead:
 * the function receives one whole line per call, on the thread that wrote it. */
typedef void(OVD_CALL* ovdMessageCallback)(const char* line, void* userData);

/* Routes every message line to `callback`; a null callback silences them. */
OVD_API void OVD_CALL ovdSetMessageCallback(ovdMessageCallback callback, void* userData);

/* Routes message lines to the standard output again (the default). */
OVD_API void OVD_CALL ovdSetMessagesToStandardOutput(void);

/* The reason of the last failed call on the calling thread, as one line of text without a
 * line feed: what the code alone can't say (the file that was short, the disk that was full,
 * the cut that found no subvolumes, the exception that ended the run). Every operation that
 * runs (the restorations, the estimate, the theoretical PSF) clears it when it starts and
 * sets it when it fails; the same reason also goes out as a message line. The text is empty
 * after a success and before any call, and stays valid until the thread's next such call. */
OVD_API const char* OVD_CALL ovdGetLastErrorMessage(void);

/* Worker threads. Heavy operations inside a run (transforms, pixel arithmetic, PSF planes)
 * spread over this many threads; the run itself and every callback stay on the caller's
 * thread, and results do not depend on the count. A count of 0 or less means all
 * processors, the default. Takes effect for the next operation. */
OVD_API void OVD_CALL ovdSetWorkerThreads(int32_t count);

/* Memory budget. A restoration cuts a stack that does not fit into memory into
 * subvolumes and restores them one at a time; by default the cut is sized from the
 * machine's physical memory. A host that must hold runs below a limit gives that limit
 * here, in bytes: the next runs (restorations and aberration estimates) size their
 * subvolumes so that all working images of one subvolume fit into it. A budget above what
 * the machine offers changes nothing. 0 or less: the machine's physical memory, the
 * default. A smaller budget means more, smaller subvolumes, not a different result away
 * from the seams. An aberration estimate keeps each subvolume's image transform between
 * its evaluations only in memory the budget leaves beyond the working images; the
 * estimate is the same either way, only its time differs. A cut whose band of the output
 * (as wide as the stack, one row of subvolumes high) fits beside one restoration is
 * blended as its restorations come, with the same result: its output is then written from
 * the first row of subvolumes on, and a run that fails or is cancelled leaves it empty. */
OVD_API void OVD_CALL ovdSetMemoryBudget(int64_t bytes);

/* The library's version ("0.1.0") and its back ends as one line: the FFT library with its
 * precision and threading, and the vector instructions the image arithmetic was built for.
 * Both strings are static and never change within a process. */
OVD_API const char* OVD_CALL ovdGetVersion(void);
OVD_API const char* OVD_CALL ovdGetBackEnds(void);

/* Theoretical PSF. Writes the PSF of the given optics as a raw float stack of width x
 * height x depth pixels (x fastest), scaled to sum 1, its centre at pixel (width/2,
 * height/2, depth/2). Spacings and the wavelength are micrometres; brightfield 0 gives the
 * widefield fluorescence PSF, 1 the transmitted-light one; sphericalAberration is the same
 * term the restorations take. An existing file is replaced. Returns 0; 2 for a malformed
 * argument (also an aperture above the index); 15, 16 and 17-20 for optics and sampling
 * refused as the restorations refuse them; 5 when the file can't be created; 1 when the
 * computation or the write failed, which leaves no file behind. */
OVD_API uint16_t OVD_CALL ovdWriteTheoreticalPsf(const char* file, int16_t width, int16_t height,
                                                 int16_t depth, float xSpacing, float ySpacing,
                                                 float zSpacing, float numericalAperture,
                                                 float refractiveIndex, float emissionWavelength,
                                                 uint16_t brightfield, float sphericalAberration);

/* Theoretical PSF models. The specified model is the one of the restorations: a paraxial
 * pupil integral with an empirical axial phase and planes weighted away from focus. The
 * exact model is the scalar diffraction integral with the exact (non-paraxial) defocus
 * phase of the immersion medium, the index mismatch of a sample at a depth below the
 * coverslip (Gibson and Lanni, coverslip as designed) and the same spherical-aberration
 * term, its focus balanced against the aberration; at NA 1.4, n 1.515, 520 nm its widths
 * are 0.19 um laterally and 0.51 um axially, and every plane holds the same light. */
enum { OVD_PSF_MODEL_SPECIFIED = 0, OVD_PSF_MODEL_EXACT = 1 };

/* The model and the sample; ovdInitStructPsfModel sets the defaults. 16 bytes. */
typedef struct ovdStructPsfModel {
    uint32_t nModel;    /*  0: OVD_PSF_MODEL_*; default specified */
    float fSampleIndex; /*  4: refractive index of the sample, 1 to 5; 0 (default): that of
                               the immersion medium. Exact model only */
    float fDepth;       /*  8: depth of the focus below the coverslip, um, 0 to 10000;
                               default 0. Exact model only */
    uint32_t nReserved; /* 12: must be 0 */
} ovdStructPsfModel;

/* Sets the defaults above; returns 0 (2 for a null record). */
OVD_API uint16_t OVD_CALL ovdInitStructPsfModel(ovdStructPsfModel* model);

/* ovdWriteTheoreticalPsf by the model of `model` (null: the specified one). Answers the
 * codes of ovdWriteTheoreticalPsf, and 2 for a record outside the ranges above. */
OVD_API uint16_t OVD_CALL ovdWriteTheoreticalPsfModel(
    const char* file, int16_t width, int16_t height, int16_t depth, float xSpacing, float ySpacing,
    float zSpacing, float numericalAperture, float refractiveIndex, float emissionWavelength,
    uint16_t brightfield, float sphericalAberration, const ovdStructPsfModel* model);

/* ovd3dInverseFilterDetectSA whose search restores with the theoretical PSF of `psfModel`
 * (null: the specified model). Answers its codes, and 2 for a model record outside its
 * ranges. */
OVD_API uint16_t OVD_CALL ovd3dInverseFilterDetectSAWithPsfModel(
    const char* inputFile, const char* tempDirectory, int16_t width, int16_t height, int16_t depth,
    float xSpacing, float ySpacing, float zSpacing, float numericalAperture, float refractiveIndex,
    float emissionWavelength, uint16_t phaseObject, uint16_t brightfield, uint32_t reserved13,
    int16_t xyGuardBand, int16_t zGuardBand, int16_t overlap, uint16_t xyMontage,
    uint16_t pixelType, float lowerLimit, float upperLimit, float* result, uint16_t noiseLevel,
    uint16_t reserved23, uint16_t reservedFlag, const ovdStructPsfModel* psfModel,
    ovdHostStatusCallback callback, void* userData);

/* The aberration search. The full search (the search of ovd3dInverseFilterDetectSA)
 * restores the whole stack at every candidate aberration. The binned search first sums
 * each slice of the stack over blocks of nBinFactor by nBinFactor pixels (the x and y
 * spacings grow by the factor; z is kept) and searches on that smaller stack: the same scan
 * and Brent steps on evaluations that cost a fraction of the full ones, for an estimate
 * that is coarser (the README measures both on a bead calibration stack). */
enum { OVD_SA_SEARCH_FULL = 0, OVD_SA_SEARCH_BINNED = 1 };
/* The largest bin factor a binned search takes. */
#define OVD_MAX_SA_BIN_FACTOR 8

/* The search; ovdInitStructSASearch sets the defaults. 16 bytes in any build. */
typedef struct ovdStructSASearch {
    uint32_t nSearch;      /*  0: OVD_SA_SEARCH_*; default full */
    uint32_t nBinFactor;   /*  4: binned search: 2 to OVD_MAX_SA_BIN_FACTOR, and at most a
                                  sixteenth of the stack's width and height; 0 (the
                                  default): 2, or the larger factor of the detector's own
                                  rule for stacks sampled coarser than the optics resolve,
                                  and no binning at all for a stack less than 128 pixels
                                  wide or high. Must be 0 for the full search */
    uint32_t nReserved[2]; /*  8: must be 0 */
} ovdStructSASearch;

/* Sets the defaults above; returns 0 (2 for a null record). */
OVD_API uint16_t OVD_CALL ovdInitStructSASearch(ovdStructSASearch* search);

/* ovd3dInverseFilterDetectSAWithPsfModel with the search of `search` (null: the full
 * search). Answers its codes, and 2 for a search record outside the ranges above. The bin
 * factor in use goes out as a message line. */
OVD_API uint16_t OVD_CALL ovd3dInverseFilterDetectSAWithSearch(
    const char* inputFile, const char* tempDirectory, int16_t width, int16_t height, int16_t depth,
    float xSpacing, float ySpacing, float zSpacing, float numericalAperture, float refractiveIndex,
    float emissionWavelength, uint16_t phaseObject, uint16_t brightfield, uint32_t reserved13,
    int16_t xyGuardBand, int16_t zGuardBand, int16_t overlap, uint16_t xyMontage,
    uint16_t pixelType, float lowerLimit, float upperLimit, float* result, uint16_t noiseLevel,
    uint16_t reserved23, uint16_t reservedFlag, const ovdStructPsfModel* psfModel,
    const ovdStructSASearch* search, ovdHostStatusCallback callback, void* userData);

/* Iterative restoration. ovd3dRestore restores a stack like ovd3dInverseFilter, with the
 * same records, cut and blending, by the method that this record chooses. */
enum {
    OVD_METHOD_INVERSE_FILTER = 0, /* the one-pass regularised inverse filter */
    OVD_METHOD_MLEM = 1,           /* maximum-likelihood expectation maximisation */
    OVD_METHOD_GOLD = 2,           /* Gold's ratio iteration, smoothed every few passes */
    OVD_METHOD_MLEM_2D = 3,        /* ML-EM of a single plane, several updates a pass */
    OVD_METHOD_BLIND_2D = 4        /* ML-EM of a single plane that estimates the PSF too */
};
enum {
    OVD_ACCELERATION_LINE_SEARCH = 0,  /* each pass goes as far as the likelihood keeps rising */
    OVD_ACCELERATION_EXTRAPOLATION = 1 /* each pass extrapolates from the last two estimates */
};
enum {
    OVD_START_DATA = 0,           /* the measured stack itself */
    OVD_START_INVERSE_FILTER = 1, /* the stack restored by the inverse filter */
    OVD_START_FLAT = 2            /* a constant stack of the data's mean */
};

/* The largest number of passes a run accepts. */
#define OVD_MAX_ITERATIONS 10000
/* The largest number of object or PSF updates in one pass of a plane method. */
#define OVD_MAX_UPDATES 100

/* Options of the iterative methods; ovdInitStructIterativeOps sets the defaults, which are
 * chosen for a good restoration of ordinary widefield stacks out of the box:
 *   ML-EM, because on photon-limited data it restores far better than the inverse filter;
 *   extrapolation, which costs no extra transform per pass, so a pass is two convolutions;
 *   30 passes: on a faint stack (tens of photons) the accelerated iteration is at its best
 *   there and further passes amplify noise; on a bright one it has taken most of its gain
 *   (correlation with the object 0.92 at 30 passes, 0.97 at 100, 0.51 for the filter);
 *   roughness 0.5: a light Good's penalty (strength factor x 1e-4) that damps the noise of
 *   long runs without flattening fine structure, which stronger ones begin to do;
 *   the data as the start, the estimate every ML-EM derivation assumes.
 * 32 bytes in any build. */
typedef struct ovdStructIterativeOps {
    uint32_t nMethod;       /*  0: OVD_METHOD_*; default OVD_METHOD_MLEM */
    int32_t nIterations;    /*  4: passes, 1 to OVD_MAX_ITERATIONS; 0 (the default) is
                               the method's own: 30, and 20 for the blind method */
    uint32_t nAcceleration; /*  8: OVD_ACCELERATION_*, ML-EM only; default extrapolation */
    float fRoughness;       /* 12: Good's roughness factor, 0 (none) to 1000; default 0.5 */
    uint32_t nStart;        /* 16: OVD_START_*; default OVD_START_DATA */
    float fGoldSmoothing;   /* 20: Gold's Gaussian width, pixels, 0 (none) to 10; default 1 */
    int32_t nGoldInterval;  /* 24: Gold's passes between smoothings, 1 to 1000; default 5 */
    uint16_t nObjectUpdates; /* 28: plane methods: object updates a pass, 0 to
                                OVD_MAX_UPDATES; 0 (the default) means 1, and 2 for the
                                blind method */
    uint16_t nPsfUpdates;    /* 30: blind plane method: PSF updates a pass, before the
                                object's, 0 to OVD_MAX_UPDATES; 0 (the default) means 1 */
} ovdStructIterativeOps;

/* Sets the defaults above; returns 0 (2 for a null record). */
OVD_API uint16_t OVD_CALL ovdInitStructIterativeOps(ovdStructIterativeOps* ops);

/* Restores the stack of `image` into stdOptions->pszOutputFile by the method of `iterative`
 * (null: the defaults of ovdInitStructIterativeOps). The records are those of
 * ovd3dInverseFilter and are checked as there, and further: every real number must be
 * finite (a non-finite aberration, spacing or noise factor answers 2), guard bands at most
 * 100 and the x and y guard band smaller than the stack's width and height (13), and
 * overlap at most 300 (14). The status record's sIteration and
 * sIterationCount count the passes of the subvolume in sSubvolume, and fPercentDone is
 * that subvolume's progress, as in ovd3dInverseFilter. A cancel takes effect within one
 * pass. Answers the codes of
 * ovd3dInverseFilter, and 2 for options outside the ranges above. With
 * OVD_METHOD_INVERSE_FILTER the result equals ovd3dInverseFilter's, except with a measured
 * PSF: this operation brings it to the stack's grid about its centre (pixel size/2 on each
 * axis), by linear interpolation or area weighting, with zeros wherever the file has no
 * samples, so the run restores with the PSF it was given.
 * The plane methods restore stacks of one plane (2 for a deeper one, rather than a guess
 * plane by plane). The blind method starts from the PSF of psfIn or the model and from a
 * flat object, whatever nStart says (from the data the PSF shrinks to a point at once); it
 * extrapolates the object, while the PSF takes plain steps; it restores the plane in one
 * piece (a memory budget that would cut it answers 2). Its PSF estimate, centred and scaled
 * to sum 1, is what psfOut's file receives. Blind estimation is semi-convergent: on a plane
 * of beads and lines with a PSF guess 1.5 times too wide, its defaults (20 passes, each of
 * one PSF and two object updates) bring the PSF within 1% of its true width and the object
 * closer to the truth than 30 passes with the wrong PSF; 30 passes leave the PSF 20% too
 * narrow, and further passes shrink it towards a point. */
OVD_API uint16_t OVD_CALL ovd3dRestore(const ovdStructInvFilterImage* image,
                                       const ovdStructInvFilterPsf* psfIn,
                                       ovdStructInvFilterPsf* psfOut,
                                       const ovdStructInvFilterOpsStd* stdOptions,
                                       const ovdStructInvFilterOpsExp* expOptions,
                                       const ovdStructIterativeOps* iterative,
                                       ovdStatusCallback callback, void* userData);

/* ovd3dRestore with the theoretical PSF of `psfModel` (null: the specified model), which
 * also takes the place of the specified one where a method computes its own. Answers the
 * codes of ovd3dRestore, and 2 for a model record outside its ranges. */
OVD_API uint16_t OVD_CALL ovd3dRestoreWithPsfModel(
    const ovdStructInvFilterImage* image, const ovdStructInvFilterPsf* psfIn,
    ovdStructInvFilterPsf* psfOut, const ovdStructInvFilterOpsStd* stdOptions,
    const ovdStructInvFilterOpsExp* expOptions, const ovdStructIterativeOps* iterative,
    const ovdStructPsfModel* psfModel, ovdStatusCallback callback, void* userData);

#ifdef __cplusplus
}
#endif

#endif /* OVDINF01_H */
