#pragma once
// A host's valid call: a small 16-bit stack on disk, a temporary directory and records
// that pass every check. Tests spoil one value at a time.
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "interface/ovdValidation.h"
#include "interface/ovdinf01.h"
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

    HostCall() {
        WriteWords(input, 16 * 16 * 4);
        WriteWords(psf, 8 * 8 * 4);
        image.pszFile = input.c_str();
        image.nDataType = OVD_DATATYPE_UINT16;
        image.nModality = OVD_MODALITY_WIDEFIELD_FLUORESCENCE;
        image.sWidth = 16;
        image.sHeight = 16;
        image.sDepth = 4;
        image.sExtent4 = 1;
        // A 1.4 NA oil objective at 520 nm: lateral limit 0.113 um, axial 0.278 um, so
        // these spacings sit well inside the accepted factor-of-ten band.
        image.fXSpacing = 0.1f;
        image.fYSpacing = 0.1f;
        image.fZSpacing = 0.25f;
        image.fNumericalAperture = 1.4f;
        image.fRefractiveIndex = 1.515f;
        image.fEmissionWavelength = 0.52f;
        ovdInitStructInvFilterOpsStd(&std);
        ovdInitStructInvFilterOpsExp(&exp);
        std.pszOutputFile = output.c_str();
        std.pszTempDirectory = tempPath.c_str();
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
