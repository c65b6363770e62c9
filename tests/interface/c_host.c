/* A host written in plain C: it loads the library at run time, resolves the exported
 * operations by name and calls them with records and callbacks, as an imaging program does.
 * Usage: c_host <path of libovdinf01.so> <scratch directory> */
#include <dlfcn.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "interface/ovdinf01.h"

static int failures = 0;
#define CHECK(cond)                                                                                \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);               \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

static uint16_t OVD_CALL RecordCallback(ovdStructInvFilterStatus* status, void* user) {
    (void)status;
    ++*(int*)user;
    return OVD_STATUS_CONTINUE;
}

static uint16_t OVD_CALL FlatCallback(void* user, uint32_t stage, float percent, uint32_t count,
                                      uint32_t index, float minutes) {
    (void)stage, (void)percent, (void)count, (void)index, (void)minutes;
    ++*(int*)user;
    return OVD_STATUS_CONTINUE;
}

static void* Resolve(void* library, const char* name) {
    void* symbol = dlsym(library, name);
    if (!symbol) {
        fprintf(stderr, "missing export %s\n", name);
        ++failures;
    }
    return symbol;
}

/* An operation through a pointer of the type that the header declares. */
#define RESOLVE(name) ((__typeof__(&name))Resolve(library, #name))

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: c_host <library> <scratch directory>\n");
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        fprintf(stderr, "dlopen: %s\n", dlerror());
        return 1;
    }
    __typeof__(&ovdInitStructInvFilterOpsStd) initStd = RESOLVE(ovdInitStructInvFilterOpsStd);
    __typeof__(&ovdInitStructInvFilterOpsExp) initExp = RESOLVE(ovdInitStructInvFilterOpsExp);
    __typeof__(&ovd3dInverseFilter) restore = RESOLVE(ovd3dInverseFilter);
    __typeof__(&DLL_OVD_3DIF) restoreFlat = RESOLVE(DLL_OVD_3DIF);
    __typeof__(&ovd3dInverseFilterDetectSA) detect = RESOLVE(ovd3dInverseFilterDetectSA);
    __typeof__(&ovdSetMessageCallback) setMessages = RESOLVE(ovdSetMessageCallback);
    __typeof__(&ovdSetWorkerThreads) setThreads = RESOLVE(ovdSetWorkerThreads);
    __typeof__(&ovdWriteTheoreticalPsf) writePsf = RESOLVE(ovdWriteTheoreticalPsf);
    CHECK(dlsym(library, "_ZN7Ovidane9cDeconLogC1Ev") == NULL); /* internals stay hidden */
    if (failures)
        return 1;
    setMessages(NULL, NULL); /* a quiet host */
    setThreads(1);           /* a host that keeps the library to one core */

    /* A small float stack: 16 x 16 x 4, a bright spot on a sloping background. */
    char input[512], output[512], psfOut[512];
    snprintf(input, sizeof input, "%s/stack.raw", argv[2]);
    snprintf(output, sizeof output, "%s/restored.raw", argv[2]);
    snprintf(psfOut, sizeof psfOut, "%s/psf.raw", argv[2]);
    FILE* file = fopen(input, "wb");
    float slice[16 * 16];
    for (int z = 0; z < 4; ++z) {
        for (int i = 0; i < 16 * 16; ++i)
            slice[i] = 100.0f + (float)(i % 16);
        if (z == 2)
            slice[8 * 16 + 8] += 500.0f;
        fwrite(slice, sizeof slice, 1, file);
    }
    fclose(file);

    ovdStructInvFilterOpsStd std;
    ovdStructInvFilterOpsExp exp;
    memset(&std, 0xAB, sizeof std);
    CHECK(initStd(&std) == 0);
    CHECK(std.pszOutputFile == NULL && std.pszTempDirectory == NULL && std.bPhaseObject == 0);
    CHECK(initExp(&exp) == 0);
    CHECK(exp.fNoiseFactor == 2e-5f && exp.fMemoryPercent == 100.0f);
    CHECK(exp.sXYGuardBand == 10 && exp.sZGuardBand == 6 && exp.sOverlap == 10);
    CHECK(exp.sReserved == 4 && exp.bXYMontage == 1 && exp.bReserved == 0);

    ovdStructInvFilterImage image;
    memset(&image, 0, sizeof image);
    image.pszFile = input;
    image.nDataType = OVD_DATATYPE_FLOAT32;
    image.nModality = OVD_MODALITY_WIDEFIELD_FLUORESCENCE;
    image.sWidth = 16;
    image.sHeight = 16;
    image.sDepth = 4;
    image.sExtent4 = 1;
    image.fXSpacing = image.fYSpacing = 0.1f;
    image.fZSpacing = 0.25f;
    image.fNumericalAperture = 1.4f;
    image.fRefractiveIndex = 1.515f;
    image.fEmissionWavelength = 0.52f;
    std.pszOutputFile = output;
    std.pszTempDirectory = argv[2];
    ovdStructInvFilterPsf saved;
    memset(&saved, 0, sizeof saved);
    saved.pszFile = psfOut;
    saved.sWidth = -7; /* must stay untouched unless the run succeeds */

    int calls = 0;
    CHECK(restore(NULL, NULL, NULL, &std, &exp, RecordCallback, &calls) ==
          OVD_RESULT_INVALID_ARGUMENT);
    image.fNumericalAperture = 0.25f;
    CHECK(restore(&image, NULL, &saved, &std, &exp, RecordCallback, &calls) ==
          OVD_RESULT_OPTICS_OUT_OF_RANGE);
    image.fNumericalAperture = 1.4f;
    CHECK(restore(&image, NULL, &saved, &std, &exp, RecordCallback, &calls) == OVD_RESULT_SUCCESS);
    CHECK(calls > 0);
    /* The record now describes the PSF file that the run wrote, which covers the stack. */
    CHECK(saved.sWidth >= 16 && saved.sHeight >= 16 && saved.sDepth >= 4);
    CHECK(saved.fXSpacing == 0.0f); /* a computed PSF has no spacings of its own */
    FILE* written = fopen(psfOut, "rb");
    CHECK(written != NULL);
    if (written) {
        fseek(written, 0, SEEK_END);
        CHECK(ftell(written) == 4L * saved.sWidth * saved.sHeight * saved.sDepth);
        fclose(written);
    }

    int16_t w = -1, h = -1, d = -1;
    float sx = -1, sy = -1, sz = -1;
    int flatCalls = 0;
    CHECK(restoreFlat(input, output, argv[2], 16, 16, 4, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0,
                      0, 0, 10, 6, 301, 1, 0, 0.0f, 0, 0, 0, NULL, 0, 0, 0, 0, 0, 0, NULL, &w, &h,
                      &d, &sx, &sy, &sz, FlatCallback, &flatCalls) == OVD_RESULT_OVERLAP_TOO_LARGE);
    CHECK(w == -1 && sx == -1); /* out-values are written on success only */

    float estimate = -99.0f;
    CHECK(detect(input, NULL, 16, 16, 4, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0, 0, 0, 10, 6, 10,
                 1, 0, -5.0f, 5.0f, &estimate, 0, 0, 0, FlatCallback,
                 &flatCalls) == OVD_RESULT_INVALID_ARGUMENT);

    /* The theoretical PSF: a unit sum with its peak in the middle, and a file that can't
     * be created is told apart from refused optics. */
    char psfFile[512], nowhere[512];
    snprintf(psfFile, sizeof psfFile, "%s/model-psf.raw", argv[2]);
    snprintf(nowhere, sizeof nowhere, "%s/no-such-dir/psf.raw", argv[2]);
    CHECK(writePsf(psfFile, 16, 16, 8, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0, 0.0f) ==
          OVD_RESULT_SUCCESS);
    static float model[16 * 16 * 8];
    file = fopen(psfFile, "rb");
    CHECK(file && fread(model, sizeof model, 1, file) == 1 && fgetc(file) == EOF);
    if (file)
        fclose(file);
    double sum = 0;
    int peak = 0;
    for (int i = 0; i < 16 * 16 * 8; ++i) {
        sum += model[i];
        if (model[i] > model[peak])
            peak = i;
    }
    CHECK(fabs(sum - 1.0) < 1e-4);
    CHECK(peak == (4 * 16 + 8) * 16 + 8);
    CHECK(writePsf(nowhere, 16, 16, 8, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0, 0.0f) ==
          OVD_RESULT_CANNOT_CREATE_FILE);
    CHECK(writePsf(psfFile, 16, 16, 8, 0.1f, 0.1f, 0.25f, 0.25f, 1.515f, 0.52f, 0, 0.0f) ==
          OVD_RESULT_OPTICS_OUT_OF_RANGE);

    dlclose(library);
    if (failures)
        fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
