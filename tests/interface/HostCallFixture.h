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

// Records of a valid call on a stack of w x h x d pixels of the given type, for a 1.4 NA oil
// objective at 520 nm: lateral limit 0.113 um, axial 0.278 um, so the spacings of 0.1 and
// 0.25 um sit well inside the accepted factor-of-ten band. The strings must outlive the
// records, which point into them.
inline void FillValidRecords(ovdStructInvFilterImage& image, ovdStructInvFilterOpsStd& std,
                             ovdStructInvFilterOpsExp& exp, const std::string& input,
                             uint32_t dataType, int16_t w, int16_t h, int16_t d,
                             const std::string& output, const std::string& tempDirectory) {
    image.pszFile = input.c_str();
    image.nDataType = dataType;
    image.nModality = OVD_MODALITY_WIDEFIELD_FLUORESCENCE;
    image.sWidth = w;
    image.sHeight = h;
    image.sDepth = d;
    image.sExtent4 = 1;
    image.fXSpacing = 0.1f;
    image.fYSpacing = 0.1f;
    image.fZSpacing = 0.25f;
    image.fNumericalAperture = 1.4f;
    image.fRefractiveIndex = 1.515f;
    image.fEmissionWavelength = 0.52f;
    ovdInitStructInvFilterOpsStd(&std);
    ovdInitStructInvFilterOpsExp(&exp);
    std.pszOutputFile = output.c_str();
    std.pszTempDirectory = tempDirectory.c_str();
}

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

    HostCall() {
        WriteWords(input, 16 * 16 * 4);
        WriteWords(psf, 8 * 8 * 4);
        FillValidRecords(image, std, exp, input, OVD_DATATYPE_UINT16, 16, 16, 4, output, tempPath);
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

// One host's restoration of a bead stack: the stack on disk in the pixel type asked for, an
// empty temporary directory, records that pass every check, a quiet message channel.
struct BeadJob {
    OvidaneTest::TempDir dir{"ovd-run"};
    OvidaneTest::TempDir temp{"ovd-run-temp"};
    std::string input = dir.File("stack.raw");
    std::string output = dir.File("restored.raw");
    std::string psfFile = dir.File("measured-psf.raw");
    std::string savedPsf = dir.File("saved-psf.raw");
    std::string tempPath = temp.Path().string();
    OvidaneTest::BeadStack stack;

    ovdStructInvFilterImage image{};
    ovdStructInvFilterPsf psfIn{};
    ovdStructInvFilterPsf psfOut{};
    ovdStructInvFilterOpsStd std{};
    ovdStructInvFilterOpsExp exp{};
    ovdStructIterativeOps options{};

    explicit BeadJob(const OvidaneTest::BeadStack& s, uint32_t dataType = OVD_DATATYPE_UINT16)
        : stack(s) {
        ovdSetMessageCallback(nullptr, nullptr);
        if (dataType == OVD_DATATYPE_UINT8)
            OvidaneTest::WriteRawAs<uint8_t>(input, s.v);
        else if (dataType == OVD_DATATYPE_UINT16)
            OvidaneTest::WriteRawAs<uint16_t>(input, s.v);
        else
            OvidaneTest::WriteRawAs<float>(input, s.v);
        FillValidRecords(image, std, exp, input, dataType, int16_t(s.w), int16_t(s.h),
                         int16_t(s.d), output, tempPath);
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

    uint16_t Restore(ovdStatusCallback callback = nullptr, void* user = nullptr) {
        return ovd3dInverseFilter(&image, psfIn.pszFile ? &psfIn : nullptr,
                                  psfOut.pszFile ? &psfOut : nullptr, &std, &exp, callback, user);
    }
    uint16_t RestoreIteratively(ovdStatusCallback callback = nullptr, void* user = nullptr) {
        return ovd3dRestore(&image, &psfIn, nullptr, &std, &exp, &options, callback, user);
    }
    std::vector<float> Result() const { return OvidaneTest::ReadRaw(output); }
};
