#pragma once
// A host's valid call: a small 16-bit stack on disk, a temporary directory and records
// that pass every check. Tests spoil one value at a time.
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "interface/ovdValidation.h"
#include "interface/ovdinf01.h"
#include "support/BeadStack.h"
#include "support/TempDir.h"

struct HostCall {
    OvidaneTest::TempDir dir{"ovd-host"};
    OvidaneTest::TempDir temp{"ovd-host-temp"};
    std::string input = dir.File("stack.raw");
    std::string output = dir.File("restored.raw");
    std::string psf = dir.File("psf.raw");
    std::string tempPath = temp.Path().string();

    ovdStructInvFilterImage image{};
    ovdStructInvFilterPsf psfIn{};
    ovdStructInvFilterPsf psfOut{};
    ovdStructInvFilterOpsStd std{};
    ovdStructInvFilterOpsExp exp{};

    // A 16 x 16 x 4 stack for a 1.4 NA oil objective at 520 nm: lateral limit 0.113 um,
    // axial 0.278 um, so the spacings of 0.1 and 0.25 um sit well inside the accepted
    // factor-of-ten band.
    HostCall() {
        WriteWords(input, 16 * 16 * 4);
        WriteWords(psf, 8 * 8 * 4);
        image.pszFile = input.c_str();
        image.nDataType = OVD_DATATYPE_UINT16;
        image.nModality = OVD_MODALITY_WIDEFIELD_FLUORESCENCE;
        image.sWidth = image.sHeight = 16;
        image.sDepth = 4;
        image.sExtent4 = 1;
        image.fXSpacing = image.fYSpacing = 0.1f;
        image.fZSpacing = 0.25f;
        image.fNumericalAperture = 1.4f;
        image.fRefractiveIndex = 1.515f;
        image.fEmissionWavelength = 0.52f;
        ovdInitStructInvFilterOpsStd(&std);
        ovdInitStructInvFilterOpsExp(&exp);
        std.pszOutputFile = output.c_str();
        std.pszTempDirectory = tempPath.c_str();
    }

    // The records given to the restoration; a PSF record goes only where it names a file.
    uint16_t Restore(ovdStatusCallback callback = nullptr, void* user = nullptr) {
        return ovd3dInverseFilter(&image, psfIn.pszFile ? &psfIn : nullptr,
                                  psfOut.pszFile ? &psfOut : nullptr, &std, &exp, callback, user);
    }
    uint16_t ValidateRecords() const {
        return Ovidane::ovdValidateRecords(&image, &psfIn, &psfOut, &std, &exp);
    }

    static void WriteWords(const std::string& path, std::size_t count) {
        std::vector<uint16_t> words(count);
        for (std::size_t i = 0; i < count; ++i)
            words[i] = uint16_t(100 + i % 50);
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(words.data()), std::streamsize(count * 2));
    }
};

// A Gaussian close to a 1.4 NA oil objective's widefield blur at 520 nm, sampled at 0.1 um
// in x and y and 0.25 um in z: widths in pixels.
constexpr float kSigmaXY = 1.0f, kSigmaZ = 1.5f;

// What the argument-list form writes back about the PSF; -1 until a run succeeds.
struct PsfOutValues {
    int16_t w = -1, h = -1, d = -1;
    float sx = -1, sy = -1, sz = -1;
};

// One host's restoration of a bead stack: the valid call above with the bead stack on disk
// in the pixel type asked for, and a quiet message channel.
struct BeadJob : HostCall {
    std::string psfFile = dir.File("measured-psf.raw");
    std::string savedPsf = dir.File("saved-psf.raw");
    ovdStructIterativeOps options{};

    explicit BeadJob(const OvidaneTest::BeadStack& s, uint32_t dataType = OVD_DATATYPE_UINT16) {
        ovdSetMessageCallback(nullptr, nullptr);
        if (dataType == OVD_DATATYPE_UINT8)
            OvidaneTest::WriteRawAs<uint8_t>(input, s.v);
        else if (dataType == OVD_DATATYPE_UINT16)
            OvidaneTest::WriteRawAs<uint16_t>(input, s.v);
        else
            OvidaneTest::WriteRawAs<float>(input, s.v);
        image.nDataType = dataType;
        image.sWidth = int16_t(s.w);
        image.sHeight = int16_t(s.h);
        image.sDepth = int16_t(s.d);
        ovdInitStructIterativeOps(&options);
    }
    ~BeadJob() { ovdSetMessagesToStandardOutput(); }

    void MeasuredPsf(int w, int h, int d) {
        OvidaneTest::WriteRawAs<float>(psfFile,
                                       OvidaneTest::MakeGaussianPsf(w, h, d, kSigmaXY, kSigmaZ).v);
        psfIn.pszFile = psfFile.c_str();
        psfIn.sWidth = int16_t(w);
        psfIn.sHeight = int16_t(h);
        psfIn.sDepth = int16_t(d);
        psfIn.fXSpacing = psfIn.fYSpacing = 0.1f;
        psfIn.fZSpacing = 0.25f;
    }
    // Asks for the PSF back; the record keeps -7 until a run succeeds.
    void SavePsf() {
        psfOut.pszFile = savedPsf.c_str();
        psfOut.sWidth = psfOut.sHeight = psfOut.sDepth = -7;
        psfOut.fXSpacing = -7;
    }

    // The same stack through the argument-list form, with the computed PSF and default cut.
    uint16_t RestoreThroughArguments(uint16_t pixel, float aberration, uint16_t noise,
                                     const char* psfOutFile, PsfOutValues& out,
                                     ovdHostStatusCallback callback = nullptr,
                                     void* user = nullptr) {
        return DLL_OVD_3DIF(input.c_str(), output.c_str(), tempPath.c_str(), image.sWidth,
                            image.sHeight, image.sDepth, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0,
                            0, 0, 10, 6, 10, 1, pixel, aberration, noise, 0, 0, nullptr, 0, 0, 0, 0,
                            0, 0, psfOutFile, &out.w, &out.h, &out.d, &out.sx, &out.sy, &out.sz,
                            callback, user);
    }
    uint16_t RestoreIteratively(ovdStatusCallback callback = nullptr, void* user = nullptr) {
        return ovd3dRestore(&image, &psfIn, nullptr, &std, &exp, &options, callback, user);
    }
    std::vector<float> Result() const { return OvidaneTest::ReadRaw(output); }
};
